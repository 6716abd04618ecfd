#!/usr/bin/env bash
# The real tray app for MINUTES on a throwaway X desktop (with a tray and a private session
# bus) while its daemon misbehaves; not part of CTest. Samples the app's memory and open files,
# counts daemon starts, zombies and log lines, reports the worst event-loop delay and whether
# the app ever crashed. The measuring is bench/soak.py.
#   bench/soak.sh MINUTES [faults|exits] [BUILD_DIR]
#     faults  brixd-sim cycling every 10 s through normal, 500, hang, garbage, slow and killed
#             with the request in hand (the default)
#     exits   a daemon that exits as soon as it starts; at the end the app must say that it
#             keeps stopping, not "Starting meter…" (read from the tray icon's tooltip, which
#             carries what the popover's header says)
# Ends non-zero when a figure misses its mark. Two soaks can run at once.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
minutes=${1:?usage: bench/soak.sh MINUTES [faults|exits] [BUILD_DIR]}
mode=${2:-faults}
bin=$(cd "${3:-$here/build}/bin" && pwd)
state=$(mktemp -d)
home=$(mktemp -d)
trap 'bash "$here/tests/support/xsession.sh" stop "$state"; rm -rf "$state" "$home"' EXIT
bash "$here/tests/support/xsession.sh" start "$state" >/dev/null
export DISPLAY=$(cat "$state/display") HOME=$home XDG_SESSION_TYPE=x11
unset QT_QPA_PLATFORM WAYLAND_DISPLAY QT_LOGGING_RULES QUON_BRIX_LAG_PROBE JOURNAL_STREAM
dbus-run-session -- /usr/bin/python3 "$here/bench/soak.py" "$bin" "$minutes" "$mode"
