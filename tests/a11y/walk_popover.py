#!/usr/bin/python3
"""What a screen reader meets in the popover: the real tray app on the test X desktop, opened
the way a second `quonbrix` opens it, walked through AT-SPI. Fails on a control that shows but
has no name, on a bar without a name, and on a control the Tab key never reaches.

    walk_popover.py BIN_DIR XSESSION_DIR        (run under dbus-run-session)
"""
import os, socket, subprocess, sys, tempfile, time

import pyatspi

bin_dir, xsession_dir = sys.argv[1], sys.argv[2]
with open(os.path.join(xsession_dir, "display")) as f:
    os.environ["DISPLAY"] = f.read().strip()

CONTROLS = {"push button", "page tab", "check box", "toggle button", "text", "entry"}
NAMED = CONTROLS | {"progress bar", "frame"}


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for(what, check, seconds):
    deadline = time.time() + seconds
    while time.time() < deadline:
        got = check()
        if got:
            return got
        time.sleep(0.2)
    sys.exit(f"FAIL: {what} within {seconds} s")


def popover_frame():
    desktop = pyatspi.Registry.getDesktop(0)
    for app in desktop:
        if not app:
            continue
        for i in range(app.childCount):
            frame = app.getChildAtIndex(i)
            if frame and frame.getRoleName() == "frame" and \
                    frame.getState().contains(pyatspi.STATE_SHOWING) and frame.childCount > 3:
                return frame
    return None


def showing(acc):
    """Every node of the tree under `acc` that is on screen, in reading order."""
    out = []
    try:
        if not acc.getState().contains(pyatspi.STATE_SHOWING):
            return out
        out.append(acc)
        for i in range(acc.childCount):
            out.extend(showing(acc.getChildAtIndex(i)))
    except Exception:
        pass
    return out


def focused(frame):
    for acc in showing(frame):
        if acc.getRoleName() in CONTROLS and acc.getState().contains(pyatspi.STATE_FOCUSED):
            return acc
    return None


def describe(acc):
    return f"{acc.getRoleName()} {acc.name!r}"


home = tempfile.mkdtemp(prefix="quonbrix-a11y-")
env = dict(os.environ, HOME=home, QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", QT_ACCESSIBILITY="1",
           QUON_BRIX_ADMIN_PORT=str(free_port()), BRIXD_SIM_SCENARIO="typical-day",
           QUON_BRIX_DAEMON=os.path.join(bin_dir, "brixd-sim"), XDG_SESSION_TYPE="x11")
for name in ("QT_QPA_PLATFORM", "WAYLAND_DISPLAY", "QT_LOGGING_RULES"):
    env.pop(name, None)
bus = subprocess.Popen(["/usr/libexec/at-spi-bus-launcher", "--launch-immediately"],
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
time.sleep(1)
quonbrix = os.path.join(bin_dir, "quonbrix")
app = subprocess.Popen([quonbrix], env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
failures = []
try:
    wait_for("a status from the stand-in daemon",
             lambda: subprocess.run([quonbrix, "status"], env=env,
                                    capture_output=True).returncode == 0, 30)
    subprocess.run([quonbrix], env=env, timeout=20)  # opens the popover of the running app
    frame = wait_for("the popover in the accessibility tree", popover_frame, 20)
    # The panels are there once the tray has read the daemon (its bars show).
    wait_for("the panels of the popover", lambda: any(
        acc.getRoleName() == "progress bar" for acc in showing(frame)), 20)
    time.sleep(0.5)
    if not frame.name:
        failures.append("the popover window has no name")

    nodes = showing(frame)
    for acc in nodes:
        if acc.getRoleName() in NAMED and not acc.name.strip():
            failures.append(f"unnamed {acc.getRoleName()}")
        if acc.getRoleName() == "progress bar":
            try:
                if acc.queryValue().maximumValue <= 0:
                    failures.append(f"{describe(acc)} has no range")
            except NotImplementedError:
                pass
    controls = [acc for acc in nodes if acc.getRoleName() in CONTROLS and
                acc.getState().contains(pyatspi.STATE_FOCUSABLE) and
                acc.getState().contains(pyatspi.STATE_SENSITIVE)]
    if not controls:
        failures.append("no controls at all")

    # Tab through: every control on screen is reached, in one round, with something focused
    # from the start.
    first = focused(frame)
    if first is None:
        failures.append("nothing has the keyboard focus when the popover opens")
    reached = []
    for _ in range(len(controls) + 2):
        now = focused(frame)
        if now is not None:
            reached.append(describe(now))
        subprocess.run(["xdotool", "key", "Tab"])
        time.sleep(0.25)
    for acc in controls:
        if describe(acc) not in reached:
            failures.append(f"Tab never reaches {describe(acc)}")
    print(f"{len(nodes)} nodes on screen, {len(controls)} controls, Tab reached "
          f"{len(set(reached))}: " + ", ".join(dict.fromkeys(reached)))
finally:
    app.terminate()
    try:
        app.wait(10)
    except subprocess.TimeoutExpired:
        app.kill()
    bus.terminate()

if failures:
    print("FAIL:\n  " + "\n  ".join(failures))
    sys.exit(1)
print("PASS")
