#!/bin/sh
# Starts the real program in desktop mode as a Wayland client of a headless Weston and requires
# that it maps its main window as a toplevel under the desktop entry's id (what a Wayland desktop
# matches to the installed entry and icon) and keeps running. Weston's headless backend has no
# input devices, so the program is ended with SIGTERM; the keyboard walk is desktop-smoke.sh's.
set -eu
program=$1
home=$(mktemp -d)
weston_pid=
app=
cleanup() {
    [ -n "$app" ] && kill "$app" 2>/dev/null || true
    [ -n "$weston_pid" ] && kill "$weston_pid" 2>/dev/null || true
    rm -rf "$home"
}
trap cleanup EXIT
export HOME="$home" XDG_DATA_HOME="$home/data" XDG_CONFIG_HOME="$home/config" XDG_CACHE_HOME="$home/cache"
export XDG_RUNTIME_DIR="$home/runtime"
mkdir -p "$XDG_RUNTIME_DIR" "$XDG_DATA_HOME/Tallowick"
chmod 700 "$XDG_RUNTIME_DIR"
unset DISPLAY
weston --backend=headless-backend.so --socket=tallowick-smoke --idle-time=0 --width=1600 --height=1000 \
    >"$home/weston.log" 2>&1 &
weston_pid=$!
for _ in $(seq 1 100); do
    [ -S "$XDG_RUNTIME_DIR/tallowick-smoke" ] && break
    sleep 0.1
done
[ -S "$XDG_RUNTIME_DIR/tallowick-smoke" ] || { cat "$home/weston.log" >&2; echo "weston did not start" >&2; exit 1; }

WAYLAND_DISPLAY=tallowick-smoke QT_QPA_PLATFORM=wayland WAYLAND_DEBUG=1 "$program" >"$home/app.log" 2>&1 &
app=$!
shown=
for _ in $(seq 1 200); do
    if grep -q 'xdg_toplevel@[0-9]*\.set_app_id("local.tallowick.Tallowick")' "$home/app.log" &&
        grep -q 'xdg_toplevel@[0-9]*\.set_title("Tallowick")' "$home/app.log" &&
        grep -q 'wl_surface@[0-9]*\.commit()' "$home/app.log"; then
        shown=yes
        break
    fi
    kill -0 "$app" 2>/dev/null || break
    sleep 0.1
done
if [ -z "$shown" ]; then
    grep -v '^\[' "$home/app.log" | tail -n 20 >&2
    echo "the program showed no Wayland toplevel named Tallowick with the desktop entry's id" >&2
    exit 1
fi
sleep 2
kill -0 "$app" 2>/dev/null || { echo "the program ended on its own under Wayland" >&2; exit 1; }
kill "$app"
wait "$app" || true
app=
echo "desktop mode ran as a Wayland client of a headless Weston and showed its window"
