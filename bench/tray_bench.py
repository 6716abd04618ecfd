#!/usr/bin/env python3
"""The tray app measured as a user runs it, next to a bare Qt tray icon, on the X desktop and
session bus that bench/rss.sh starts:

- memory with the popover never opened, open, and after it was closed;
- how soon the popover is on screen after it is asked for;
- wake-ups per minute while nobody looks, and the largest event-loop delay;
- time from exec to the first status read from a daemon that is already answering.

Memory of the app counts every process of the app (the tray and its popover, never the
daemon) as the pages resident in any of them, each page once: for one process that is its
VmRSS, so the bare tray's VmRSS is the baseline. Prints `row:` lines for scripts/bench."""

import os
import re
import signal
import statistics
import struct
import subprocess
import sys
import tempfile
import time

from procfs import child_processes, free_port, vmrss_kib

BIN = sys.argv[1]
SETTLE = float(os.environ.get("RSS_SETTLE_SECONDS", "6"))
LINGER_WAIT = 60.0  # the popover process must be gone by then


def resident_frames(pid):
    """Physical page numbers resident in `pid`, or None when the kernel hides them (not root)."""
    frames = set()
    with open(f"/proc/{pid}/maps") as maps, open(f"/proc/{pid}/pagemap", "rb") as pagemap:
        for line in maps:
            if "[vsyscall]" in line:
                continue
            lo, hi = (int(x, 16) for x in line.split()[0].split("-"))
            pagemap.seek(lo // 4096 * 8)
            for (entry,) in struct.iter_unpack("<Q", pagemap.read((hi - lo) // 4096 * 8)):
                if entry >> 63:
                    frames.add(entry & ((1 << 55) - 1))
    return None if frames <= {0} else frames


def memory_kib(pids):
    sets = [resident_frames(p) for p in pids]
    if any(s is None for s in sets):
        return sum(vmrss_kib(p) for p in pids), "sum of VmRSS (not root: pages not visible)"
    return len(set().union(*sets)) * 4, "pages resident in any of its processes"


def children(parent, name):
    return [pid for pid, comm, state in child_processes(parent) if comm == name and state != "Z"]


def popovers(app):
    return children(app.pid, "quonbrix-popove")  # the kernel keeps 15 characters


def context_switches(pid):
    """Voluntary and involuntary context switches so far, by thread name."""
    counts = {}
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/comm") as f:
            name = f.read().strip()
        with open(f"/proc/{pid}/task/{task}/status") as f:
            text = f.read()
        counts[name] = counts.get(name, 0) + sum(
            int(n) for n in re.findall(r"ctxt_switches:\s+(\d+)", text))
    return counts


def mapped_libraries(pid, pattern):
    with open(f"/proc/{pid}/maps") as f:
        return sorted({os.path.basename(l.split()[-1]) for l in f if re.search(pattern, l)})


class Log:
    """The app's stderr, kept in a file and searched from where the last search stopped."""

    def __init__(self):
        self.file = tempfile.NamedTemporaryFile(prefix="quonbrix-bench-", suffix=".log")
        self.seen = 0

    def wait(self, pattern, timeout):
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            with open(self.file.name, errors="replace") as f:
                f.seek(self.seen)
                text = f.read()
            match = re.search(pattern, text)
            if match:
                self.seen += len(text[:match.end()].encode())
                return match
            time.sleep(0.02)
        return None


def start_app(env, log):
    return subprocess.Popen([f"{BIN}/quonbrix"], env=env, stderr=log.file, stdout=subprocess.DEVNULL)


def stop(process):
    process.send_signal(signal.SIGTERM)
    try:
        process.wait(10)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def xdotool(*args):
    return subprocess.run(["xdotool", *args], capture_output=True, text=True).stdout.split()


def click_tray_icon():
    icons = xdotool("search", "--onlyvisible", "--classname", "^quonbrix$")
    if icons:
        xdotool("mousemove", "--window", icons[0], "11", "11", "click", "1")
    return bool(icons)


def shown_ms(log, what):
    match = log.wait(r"popover: shown (\d+) ms after it was asked for", 10)
    if not match:
        print(f"tray: the popover did not come up ({what})")
        return None
    return int(match.group(1))


def row(what, figure, target, met):
    print(f"row: {what}|{figure}|{target}|{met}")


def mib(kib):
    return kib / 1024


def main():
    base_env = dict(os.environ)
    base_env.update(QUON_BRIX_DAEMON=f"{BIN}/brixd-sim", BRIXD_SIM_SCENARIO="near-limits",
                    QUON_BRIX_ADMIN_PORT=str(free_port()))

    bare = subprocess.Popen([f"{BIN}/bare_tray"], stderr=subprocess.DEVNULL)
    time.sleep(SETTLE)
    bare_kib, how = memory_kib([bare.pid])
    stop(bare)
    print(f"tray: bare QSystemTrayIcon {mib(bare_kib):.1f} MiB; memory of the app is {how}")

    # Memory and latency, with the event-loop probe on for the whole run.
    log = Log()
    env = dict(base_env, QUON_BRIX_LAG_PROBE="1", QT_LOGGING_RULES="quonbrix.popover.debug=true")
    app = start_app(env, log)
    time.sleep(SETTLE)
    closed_kib, _ = memory_kib([app.pid])
    heavy = mapped_libraries(app.pid, r"libQt6Quick|libQt6Qml|libssl|libcrypto|tls/")
    print(f"tray: popover never opened {mib(closed_kib):.1f} MiB; libraries it must not map: "
          f"{', '.join(heavy) if heavy else 'none mapped'}")

    subprocess.run([f"{BIN}/quonbrix"], env=base_env, stderr=subprocess.DEVNULL)
    first = shown_ms(log, "first open")
    time.sleep(SETTLE)
    open_pids = [app.pid] + popovers(app)
    open_kib, _ = memory_kib(open_pids)
    print(f"tray: popover open {mib(open_kib):.1f} MiB over {len(open_pids)} processes "
          f"(popover process alone {mib(vmrss_kib(open_pids[-1])):.1f} MiB VmRSS)")

    click_tray_icon()  # a click on the icon closes the open popover
    closed_at = time.monotonic()
    after_kib, after_s = None, None
    while time.monotonic() - closed_at < LINGER_WAIT + 5:
        time.sleep(2)
        after_kib, _ = memory_kib([app.pid] + popovers(app))
        after_s = time.monotonic() - closed_at
        if after_kib <= 1.4 * bare_kib and not popovers(app):
            break
    print(f"tray: {after_s:.0f} s after closing: {mib(after_kib):.1f} MiB, popover process "
          f"{'still running' if popovers(app) else 'gone'}")

    click_tray_icon()  # opens it again: a new popover process
    again_cold = shown_ms(log, "after the popover process ended")
    time.sleep(1)
    click_tray_icon()
    time.sleep(1)
    click_tray_icon()  # within the linger time: the same process shows it again
    again_warm = shown_ms(log, "soon after closing")
    stop(app)
    lag = log.wait(r"largest event-loop delay (\d+) ms", 5)
    lag_ms = int(lag.group(1)) if lag else None

    # Wake-ups while nobody looks (no probe, no popover).
    quiet = Log()
    app = start_app(base_env, quiet)
    time.sleep(SETTLE + 4)
    before = context_switches(app.pid)
    time.sleep(60)
    after = context_switches(app.pid)
    stop(app)
    by_thread = {name: after[name] - before.get(name, 0) for name in after}
    wakeups = sum(by_thread.values())
    print(f"tray: {wakeups} context switches in 60 s, popover closed (" +
          ", ".join(f"{n} {c}" for n, c in sorted(by_thread.items(), key=lambda i: -i[1])) +
          "); the 5 s refresh and the 15 s heartbeat are 16 HTTP requests a minute")

    # Start to first status, with a daemon that already answers (and none started by the app).
    port = free_port()
    sim = subprocess.Popen([f"{BIN}/brixd-sim", "run", "--port", str(port), "--scenario",
                            "typical-day"], stderr=subprocess.DEVNULL)
    time.sleep(1)
    starts = []
    for _ in range(5):
        run_log = Log()
        run_env = dict(base_env, QUON_BRIX_ADMIN_PORT=str(port),
                       QUON_BRIX_DAEMON="/nonexistent/brixd")
        t0 = time.monotonic()
        app = start_app(run_env, run_log)
        if run_log.wait(r"status: daemon answered at", 10):
            starts.append((time.monotonic() - t0) * 1000)
        stop(app)
    sim.terminate()
    sim.wait()
    start_ms = statistics.median(starts) if starts else None
    print("tray: exec to first status applied (daemon answering): " +
          (", ".join(f"{s:.0f}" for s in starts) + " ms" if starts else "never"))

    def ratio_row(what, kib, target):
        met = kib is not None and kib <= target * bare_kib
        row(what, f"{mib(kib):.1f} MiB ({kib / bare_kib:.2f}x)", f"<= {target}x bare "
            f"({mib(bare_kib):.1f} MiB)", "met" if met else "MISSED")
        return met

    ok = ratio_row("memory, popover never opened", closed_kib, 1.3)
    ok &= ratio_row("memory, popover open (near limits)", open_kib, 1.9)
    ok &= ratio_row(f"memory, {after_s:.0f} s after closing", after_kib, 1.4)
    latencies = [first, again_warm, again_cold]
    met = all(l is not None and l < 150 for l in latencies)
    row("popover on screen after asked: first / again soon / after exit",
        " / ".join("—" if l is None else f"{l} ms" for l in latencies), "< 150 ms",
        "met" if met else "MISSED")
    ok &= met
    row("wake-ups per minute, popover closed", f"{wakeups}", "16 timer ticks + replies", "report")
    row("largest event-loop delay (whole run)", "—" if lag_ms is None else f"{lag_ms} ms",
        "report", "report")
    met = start_ms is not None and start_ms < 1000
    row("exec to first status (daemon answering)",
        "—" if start_ms is None else f"{start_ms:.0f} ms", "< 1 s", "met" if met else "MISSED")
    ok &= met
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
