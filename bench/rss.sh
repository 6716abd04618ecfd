#!/usr/bin/env bash
# The tray app on a throwaway X desktop with a tray and a private session bus, next to a bare Qt
# tray icon: memory with the popover never opened, open and closed again, how soon the popover
# shows, wake-ups while idle, the worst event-loop delay and the time to the first status.
# The measuring is bench/tray_bench.py; run as root so it can count shared pages once.
#   bench/rss.sh BUILD_DIR
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bin=$(cd "${1:-$here/build}/bin" && pwd)
state=$(mktemp -d)
home=$(mktemp -d)
trap 'bash "$here/tests/support/xsession.sh" stop "$state"; rm -rf "$state" "$home"' EXIT
bash "$here/tests/support/xsession.sh" start "$state" >/dev/null
export DISPLAY=$(cat "$state/display") HOME=$home XDG_SESSION_TYPE=x11
unset QT_QPA_PLATFORM WAYLAND_DISPLAY QT_LOGGING_RULES QUON_BRIX_LAG_PROBE
dbus-run-session -- python3 "$here/bench/tray_bench.py" "$bin" 2> >(grep -v 'fd limit' >&2)
