"""What the bench scripts read of a process from /proc, and a free loopback port."""

import os
import re
import socket


def vmrss_kib(pid):
    with open(f"/proc/{pid}/status") as f:
        return int(re.search(r"VmRSS:\s+(\d+)", f.read()).group(1))


def child_processes(parent):
    """(pid, name, state) of each child of `parent`; the kernel keeps 15 characters of a name."""
    out = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open(f"/proc/{entry}/stat") as f:
                stat = f.read()
        except OSError:
            continue
        name = stat[stat.index("(") + 1:stat.rindex(")")]
        rest = stat[stat.rindex(")") + 2:].split()
        if int(rest[1]) == parent:
            out.append((int(entry), name, rest[0]))
    return out


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]
