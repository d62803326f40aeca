#!/bin/sh
# Runs a command inside a private D-Bus session with a GNOME Keyring of its own, unlocked with a
# throwaway password. Nothing touches the user's own keyring: HOME points at a temporary folder.
set -eu
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME="$home" XDG_DATA_HOME="$home/data" XDG_CONFIG_HOME="$home/config" XDG_RUNTIME_DIR="$home/run"
mkdir -p "$XDG_DATA_HOME" "$XDG_CONFIG_HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
status=0
dbus-run-session -- sh -c '
    printf "throwaway-test-password" | gnome-keyring-daemon --unlock --components=secrets >/dev/null
    exec "$@"' sh "$@" || status=$?
exit "$status"
