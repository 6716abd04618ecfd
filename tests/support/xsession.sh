#!/usr/bin/env bash
# A throwaway X desktop for the tests: Xvfb on a free display, openbox as window manager and
# trayer as system tray. Used as a CTest fixture:
#   xsession.sh start STATE_DIR   starts it; STATE_DIR/display holds ":N"
#   xsession.sh stop STATE_DIR    stops everything it started
set -uo pipefail
action=$1 state=$2

stop() {
    [ -f "$state/pids" ] || return 0
    mapfile -t pids <"$state/pids"
    kill "${pids[@]}" 2>/dev/null
    # Wait for them: a dying X server removes its socket, which would break the next one
    # started on the same display number.
    for _ in $(seq 50); do
        alive=""
        for pid in "${pids[@]}"; do kill -0 "$pid" 2>/dev/null && alive=1; done
        [ -z "$alive" ] && break
        sleep 0.1
    done
    rm -f "$state/pids" "$state/display"
}

# One try at bringing the desktop up; fails when a piece does not come up in time.
attempt() {
    mkdir -p "$state"
    : >"$state/display.raw"
    exec 3>"$state/display.raw"
    Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp >"$state/xvfb.log" 2>&1 &
    echo $! >"$state/pids"
    exec 3>&-
    for _ in $(seq 50); do [ -s "$state/display.raw" ] && break; sleep 0.1; done
    [ -s "$state/display.raw" ] || { echo "xsession: Xvfb did not start" >&2; return 1; }
    display=":$(head -n1 "$state/display.raw")"
    export DISPLAY=$display
    openbox >"$state/openbox.log" 2>&1 &
    echo $! >>"$state/pids"
    trayer --edge top --align right --widthtype request --height 24 >"$state/trayer.log" 2>&1 &
    echo $! >>"$state/pids"
    # Ready when the window manager has announced itself and the tray owns its selection.
    for _ in $(seq 100); do
        if xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' &&
            xdotool search --class trayer >/dev/null 2>&1; then
            echo "$display" >"$state/display"
            return 0
        fi
        sleep 0.1
    done
    echo "xsession: openbox or trayer did not come up on $display" >&2
    return 1
}

case $action in
start)
    stop
    for tool in Xvfb openbox trayer xprop xdotool; do
        if ! command -v $tool >/dev/null; then
            echo "xsession: $tool is not installed (scripts/deps installs it)" >&2
            exit 1
        fi
    done
    # A busy machine occasionally loses a fresh X server at start; a second try settles it.
    for try in 1 2 3; do
        if attempt; then
            echo "xsession: $(cat "$state/display") ready"
            exit 0
        fi
        stop
    done
    exit 1
    ;;
stop) stop ;;
*) echo "usage: $0 start|stop STATE_DIR" >&2; exit 2 ;;
esac
