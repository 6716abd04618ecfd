#!/usr/bin/env bash
# A throwaway headless sway for the tests. Used as a CTest fixture:
#   swaysession.sh start STATE_DIR   starts it; STATE_DIR/wayland and STATE_DIR/swaysock hold
#                                    the paths of its Wayland and IPC sockets
#   swaysession.sh stop STATE_DIR    stops it
# sway refuses to run as root, so under root it runs as nobody; root still reaches its
# sockets in nobody's runtime directory.
set -uo pipefail
action=$1 state=$2

stop() {
    [ -f "$state/pid" ] || return 0
    pid=$(cat "$state/pid")
    kill "$pid" 2>/dev/null
    for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
    rm -rf "$state/pid" "$state/wayland" "$state/swaysock" "$state/runtime"
}

start() {
    mkdir -p "$state"
    runtime=$state/runtime
    mkdir -m 0700 "$runtime"
    # No outputs to configure, no bar, no Xwayland: only what the tests look at.
    printf 'xwayland disable\n' >"$runtime/config"
    as_user=()
    if [ "$(id -u)" -eq 0 ]; then
        chown nobody:"$(id -gn nobody)" "$runtime" "$runtime/config"
        as_user=(setpriv --reuid=nobody --regid="$(id -g nobody)" --clear-groups)
    fi
    env -i PATH="$PATH" HOME="$runtime" XDG_RUNTIME_DIR="$runtime" \
        WLR_BACKENDS=headless WLR_RENDERER=pixman WLR_LIBINPUT_NO_DEVICES=1 \
        "${as_user[@]}" sway -c "$runtime/config" >"$state/sway.log" 2>&1 &
    echo $! >"$state/pid"
    for _ in $(seq 100); do
        wayland=$(find "$runtime" -maxdepth 1 -type s -name 'wayland-*' | head -n1)
        swaysock=$(find "$runtime" -maxdepth 1 -type s -name 'sway-ipc.*.sock' | head -n1)
        if [ -n "$wayland" ] && [ -n "$swaysock" ] &&
            SWAYSOCK=$swaysock swaymsg -t get_version >/dev/null 2>&1; then
            echo "$wayland" >"$state/wayland"
            echo "$swaysock" >"$state/swaysock"
            return 0
        fi
        kill -0 "$(cat "$state/pid")" 2>/dev/null || break
        sleep 0.1
    done
    echo "swaysession: sway did not come up; its log:" >&2
    tail -n 20 "$state/sway.log" >&2
    return 1
}

case $action in
start)
    stop
    for tool in sway swaymsg; do
        if ! command -v $tool >/dev/null; then
            echo "swaysession: $tool is not installed (scripts/deps installs it)" >&2
            exit 1
        fi
    done
    if start; then
        echo "swaysession: $(cat "$state/wayland") ready"
        exit 0
    fi
    stop
    exit 1
    ;;
stop) stop ;;
*) echo "usage: $0 start|stop STATE_DIR" >&2; exit 2 ;;
esac
