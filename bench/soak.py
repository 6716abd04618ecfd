#!/usr/bin/python3
"""The tray app against a misbehaving daemon for a number of minutes (see bench/soak.sh).

    soak.py BIN_DIR MINUTES faults|exits        (under dbus-run-session, with DISPLAY set)

Every 10 s: the tray process's VmRSS and open descriptors, its zombie children and the daemon
starts so far. Memory and descriptors must stay within 5 % after a warm-up (the first fifth of
the run, at least a minute); the worst event-loop delay the app reports at the end must stay
under 100 ms; the app must never crash. `exits` also wants about one start a second and the
app saying that brixd keeps stopping (its tray icon's tooltip, which carries what the popover's
header says) rather than "Starting meter…".
"""
import os, re, signal, stat, subprocess, sys, tempfile, time

from procfs import child_processes, free_port, vmrss_kib

BIN, MINUTES, MODE = sys.argv[1], float(sys.argv[2]), sys.argv[3]
SAMPLE_S = 10


def sample(pid):
    return {"rss_kib": vmrss_kib(pid), "fds": len(os.listdir(f"/proc/{pid}/fd")),
            "zombies": sum(1 for _, _, s in child_processes(pid) if s == "Z")}


class TrayWatcher:
    """A StatusNotifierItem host on the session bus, so that the app puts its icon on D-Bus
    and its tooltip (the status it shows) can be read back."""

    XML = """<node><interface name="org.kde.StatusNotifierWatcher">
      <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
      <method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
      <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
      <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
      <property name="ProtocolVersion" type="i" access="read"/>
      <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
      <signal name="StatusNotifierHostRegistered"/>
    </interface></node>"""

    def __init__(self):
        import threading
        from gi.repository import Gio, GLib
        self.Gio, self.GLib = Gio, GLib
        self.items = []
        self.bus = Gio.bus_get_sync(Gio.BusType.SESSION)
        info = Gio.DBusNodeInfo.new_for_xml(self.XML).interfaces[0]
        self.bus.register_object("/StatusNotifierWatcher", info, self._call, self._property)
        Gio.bus_own_name_on_connection(self.bus, "org.kde.StatusNotifierWatcher",
                                       Gio.BusNameOwnerFlags.NONE, None, None)
        self.loop = GLib.MainLoop()
        threading.Thread(target=self.loop.run, daemon=True).start()
        time.sleep(0.5)

    def _call(self, conn, sender, path, iface, method, params, invocation):
        if method == "RegisterStatusNotifierItem":
            name = params.unpack()[0]
            self.items.append((sender, name if name.startswith("/") else "/StatusNotifierItem"))
        invocation.return_value(None)

    def _property(self, conn, sender, path, iface, name):
        GLib = self.GLib
        return {"RegisteredStatusNotifierItems": GLib.Variant("as", []),
                "IsStatusNotifierHostRegistered": GLib.Variant("b", True),
                "ProtocolVersion": GLib.Variant("i", 0)}[name]

    def tooltip(self):
        """The tooltip's title of the last item registered; None without one."""
        if not self.items:
            return None
        sender, path = self.items[-1]
        reply = self.bus.call_sync(sender, path, "org.freedesktop.DBus.Properties", "Get",
                                   self.GLib.Variant("(ss)", ("org.kde.StatusNotifierItem",
                                                              "ToolTip")),
                                   None, self.Gio.DBusCallFlags.NONE, 5000, None)
        return reply.unpack()[0][2]


def flat(values, warmup):
    after = values[warmup:]
    if len(after) < 2:
        return True, 0.0
    first, last = sum(after[:3]) / len(after[:3]), sum(after[-3:]) / len(after[-3:])
    change = (last - first) / first * 100 if first else 0.0
    return change <= 5.0, change


def main():
    work = tempfile.mkdtemp(prefix="quonbrix-soak-")
    env = dict(os.environ, QUON_BRIX_ADMIN_PORT=str(free_port()), QUON_BRIX_LAG_PROBE="1")
    starts_file = os.path.join(work, "starts")
    if MODE == "faults":
        # Each start of the stand-in leaves a line, so that starts after a kill are counted.
        daemon = os.path.join(work, "brixd")
        with open(daemon, "w") as f:
            f.write(f"#!/bin/sh\necho $$ >> {starts_file}\nexec {BIN}/brixd-sim \"$@\"\n")
        env["BRIXD_SIM_FAULT"] = "cycle=10"
    elif MODE == "exits":
        daemon = os.path.join(work, "brixd")
        with open(daemon, "w") as f:
            f.write(f"#!/bin/sh\necho $$ >> {starts_file}\nexit 1\n")
    else:
        sys.exit(f"soak: unknown mode {MODE} (faults or exits)")
    os.chmod(daemon, stat.S_IRWXU)
    env["QUON_BRIX_DAEMON"] = daemon
    open(starts_file, "w").close()

    # `exits` reads what the app shows from its tray icon's tooltip, on D-Bus; `faults` keeps
    # the X11 tray.
    watcher = TrayWatcher() if MODE == "exits" else None
    log_path = os.path.join(work, "app.log")
    log = open(log_path, "wb")
    app = subprocess.Popen([f"{BIN}/quonbrix"], env=env, stdout=subprocess.DEVNULL, stderr=log)
    began = time.monotonic()
    samples, crashed = [], None
    print(f"soak: {MODE} for {MINUTES:g} min, tray pid {app.pid}")
    while time.monotonic() - began < MINUTES * 60:
        time.sleep(SAMPLE_S)
        if app.poll() is not None:
            crashed = f"the app ended by itself (status {app.returncode})"
            break
        s = sample(app.pid)
        s["t"] = time.monotonic() - began
        with open(starts_file) as f:
            s["starts"] = sum(1 for _ in f)
        samples.append(s)
        if len(samples) % 6 == 1:
            print(f"soak: {s['t']:5.0f} s  VmRSS {s['rss_kib'] / 1024:6.1f} MiB  fds {s['fds']:3d}"
                  f"  zombies {s['zombies']}  daemon starts {s['starts']}", flush=True)

    shown = watcher.tooltip() if watcher and not crashed else None
    if not crashed:
        app.send_signal(signal.SIGTERM)
        try:
            app.wait(15)
        except subprocess.TimeoutExpired:
            app.kill()
            app.wait()
        if app.returncode != 0:
            crashed = f"the app ended with status {app.returncode} on SIGTERM"
    log.close()
    with open(log_path, errors="replace") as f:
        lines = f.read().splitlines()

    lag = None
    for line in lines:
        m = re.search(r"largest event-loop delay (\d+) ms", line)
        if m:
            lag = int(m.group(1))
    warmup = max(6, len(samples) // 5)
    rss_ok, rss_change = flat([s["rss_kib"] for s in samples], warmup)
    fds_ok, fds_change = flat([s["fds"] for s in samples], warmup)
    zombies = max((s["zombies"] for s in samples), default=0)
    starts = samples[-1]["starts"] if samples else 0
    minutes_run = samples[-1]["t"] / 60 if samples else 0
    after = samples[warmup] if len(samples) > warmup else (samples[0] if samples else None)
    last = samples[-1] if samples else None
    failures = []
    print()
    if after and last:
        print(f"VmRSS after warm-up {after['rss_kib'] / 1024:.1f} MiB, at the end "
              f"{last['rss_kib'] / 1024:.1f} MiB ({rss_change:+.1f} %), peak "
              f"{max(s['rss_kib'] for s in samples) / 1024:.1f} MiB")
        print(f"open descriptors after warm-up {after['fds']}, at the end {last['fds']} "
              f"({fds_change:+.1f} %)")
    print(f"daemon starts {starts} in {minutes_run:.1f} min ({starts / max(minutes_run * 60, 1):.2f}/s)")
    print(f"zombies at most {zombies}; log lines {len(lines)}; largest event-loop delay "
          f"{lag if lag is not None else '?'} ms")
    if crashed:
        failures.append(crashed)
    if not rss_ok:
        failures.append(f"memory grew {rss_change:.1f} %")
    if not fds_ok:
        failures.append(f"descriptors grew {fds_change:.1f} %")
    if zombies > 1:
        failures.append(f"{zombies} zombies")
    if lag is None or lag > 100:
        failures.append(f"event-loop delay {lag} ms")
    if MODE == "exits":
        rate = starts / max(minutes_run * 60, 1)
        if not 0.7 <= rate <= 1.1:
            failures.append(f"{rate:.2f} daemon starts a second")
        print(f"tray icon's tooltip: {shown!r}")
        if not shown or "keeps stopping" not in shown or "Starting meter" in shown:
            failures.append("the app does not say that brixd keeps stopping")
    for failure in failures:
        print(f"FAIL: {failure}")
    sys.exit(1 if failures else 0)


main()
