#!/usr/bin/env bash
# Resident memory (VmRSS) of the tray app with the popover closed and open, next to a bare
# Qt tray icon measured the same way, on a throwaway X desktop with a tray.
#   bench/rss.sh BUILD_DIR
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bin=$(cd "${1:-$here/build}/bin" && pwd)
state=$(mktemp -d)
home=$(mktemp -d)
trap 'bash "$here/tests/support/xsession.sh" stop "$state"; rm -rf "$state" "$home"' EXIT
bash "$here/tests/support/xsession.sh" start "$state" >/dev/null
export DISPLAY=$(cat "$state/display") HOME=$home XDG_SESSION_TYPE=x11
unset QT_QPA_PLATFORM WAYLAND_DISPLAY
export QUON_BRIX_DAEMON=$bin/brixd-sim BRIXD_SIM_SCENARIO=near-limits
export QUON_BRIX_ADMIN_PORT=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
settle=${RSS_SETTLE_SECONDS:-6}

dbus-run-session -- bash -s "$bin" "$settle" <<'INNER'
bin=$1 settle=$2
rss() { awk '/^VmRSS/ {print $2}' "/proc/$1/status"; }
"$bin/bare_tray" 2>/dev/null &
bare=$!
sleep "$settle"
bare_kb=$(rss $bare)
kill $bare; wait $bare 2>/dev/null || true

"$bin/quonbrix" 2>/dev/null &
app=$!
sleep "$settle"
closed_kb=$(rss $app)
"$bin/quonbrix" 2>/dev/null    # a second start opens the popover of the first
sleep "$settle"
open_kb=$(rss $app)
kill -TERM $app; wait $app 2>/dev/null || true

awk -v b="$bare_kb" -v c="$closed_kb" -v o="$open_kb" 'BEGIN {
    printf "rss: bare QSystemTrayIcon        %6.1f MiB\n", b / 1024
    printf "rss: quonbrix, popover closed    %6.1f MiB  (%.2fx bare)\n", c / 1024, c / b
    printf "rss: quonbrix, popover open      %6.1f MiB  (%.2fx bare)\n", o / 1024, o / b
}'
INNER
