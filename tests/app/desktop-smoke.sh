#!/bin/sh
# Starts the real program in desktop mode on a virtual display, against a data folder prepared
# with one saved connection, checks that its window appears, opens the connection sheet with
# Ctrl+N and closes it with Escape, then quits with Ctrl+Q as a user would and requires a clean
# exit. QT_SCALE_FACTOR from the caller is kept, so the same walk runs at a fractional scale.
set -eu
program=$1
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
# The window must reach the virtual display, whatever platform the caller chose.
export QT_QPA_PLATFORM=xcb
export HOME="$home" XDG_DATA_HOME="$home/data" XDG_CONFIG_HOME="$home/config" XDG_CACHE_HOME="$home/cache"
mkdir -p "$XDG_DATA_HOME/Tallowick"
cat >"$XDG_DATA_HOME/Tallowick/connections.json" <<'JSON'
[{"id":"5F0C2C4B-8A3D-4D0E-9B55-6A4E2F2D9C11","name":"Smoke test","host":"127.0.0.1","port":3306,"user":"nobody","database":"","tls":"Disabled (local only)","caPath":"","color":"green","readOnly":false}]
JSON
xvfb-run -a -s "-screen 0 1600x1000x24" sh -c '
    "$0" &
    app=$!
    window=$(xdotool search --sync --onlyvisible --name "^Tallowick$" | head -n 1)
    sleep 1
    xdotool windowfocus --sync "$window"
    xdotool key --clearmodifiers ctrl+n
    sheet=$(timeout 20 xdotool search --sync --onlyvisible --name "^New connection$" | head -n 1)
    if [ -z "$sheet" ]; then
        echo "Ctrl+N showed no connection sheet" >&2
        kill "$app"
        exit 1
    fi
    xdotool windowfocus --sync "$sheet"
    xdotool key --clearmodifiers Escape
    for _ in $(seq 1 50); do
        xdotool search --onlyvisible --name "^New connection$" >/dev/null 2>&1 || break
        sleep 0.1
    done
    xdotool windowfocus --sync "$window"
    xdotool key --clearmodifiers ctrl+q
    for _ in $(seq 1 100); do
        kill -0 "$app" 2>/dev/null || break
        sleep 0.1
    done
    if kill -0 "$app" 2>/dev/null; then
        echo "the program did not quit" >&2
        kill "$app"
        exit 1
    fi
    wait "$app"' "$program"
echo "desktop mode started, showed its window and the connection sheet, and quit cleanly${QT_SCALE_FACTOR:+ at scale $QT_SCALE_FACTOR}"
