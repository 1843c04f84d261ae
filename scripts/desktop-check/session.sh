#!/usr/bin/env bash
# Opens one real file manager on a folder named "a b ü" for checking Brindlemark's right-click
# menu by hand or with xdotool: a fresh home under /tmp/fm-NAME, its own Xvfb display, a D-Bus
# session, Brindlemark running with its window, and the menu installed by the bundle's install.
# Not part of the tests: it needs the file manager's Debian packages installed.
#
#   scripts/desktop-check/session.sh nautilus GNOME 101 nautilus --new-window "/tmp/fm-nautilus/a b ü"
#   scripts/desktop-check/session.sh dolphin KDE 105 dolphin "/tmp/fm-dolphin/a b ü"
#
# Then DISPLAY=:N xdotool / import -window root, and click-time.py to time a menu entry.
# BRINDLEMARK_SESSION_HOME puts the throwaway home elsewhere than /tmp/fm-NAME.
set -euo pipefail
name=$1 desktop=$2 display=$3
shift 3
build=${BRINDLEMARK_BUILD:-$(cd "$(dirname "$0")/../.." && pwd)/build}/src
home=${BRINDLEMARK_SESSION_HOME:-/tmp/fm-$name}
rm -rf "$home"
mkdir -p "$home/run" "$home/a b ü"
chmod 700 "$home/run"
export HOME=$home XDG_CONFIG_HOME=$home/.config XDG_DATA_HOME=$home/.local/share XDG_RUNTIME_DIR=$home/run
export XDG_CURRENT_DESKTOP=$desktop DISPLAY=:$display
[ "$desktop" = KDE ] && export KDE_SESSION_VERSION=5
Xvfb ":$display" -screen 0 1280x800x24 >/dev/null 2>&1 &
sleep 1
cat >"$home/session" <<SESSION
#!/usr/bin/env bash
echo "\$DBUS_SESSION_BUS_ADDRESS" >"$home/bus"
"$build/brindlemark" >"$home/brindlemark.log" 2>&1 &
sleep 2
BRINDLEMARK_FILE_MANAGERS=$name "$build/PlugIns/BrindlemarkFinderSync.appex/install"
cd "$home/a b ü" && "\$@" >"$home/file-manager.log" 2>&1 &
exec sleep infinity
SESSION
chmod +x "$home/session"
setsid dbus-run-session -- "$home/session" "$@" >/dev/null 2>&1 &
sleep 8
echo "$name on :$display; its home: $home; installed:"
cat "$home/.local/share/brindlemark/installed-integration"
