#!/usr/bin/env bash
# Opens two windows of one real file manager, on "alpha" and then "Beta Folder" (in front),
# under the openbox window manager on its own Xvfb display and D-Bus session, with Brindlemark
# running: for checking by hand or with xdotool that "Create File" and the keyboard shortcut's
# "brindlemark --new-file" act on the front window's folder. Prints the query's times.
# Not part of the tests: it needs the file manager's and openbox's Debian packages.
#
#   scripts/desktop-check/front-folder.sh nautilus GNOME 111 nautilus --new-window
#   scripts/desktop-check/front-folder.sh dolphin KDE 112 dolphin --new-window
#
# The folder is appended to the command. Its home is /tmp/ff-NAME; it runs until killed
# (pkill -f /tmp/ff-NAME/session).
set -euo pipefail
name=$1 desktop=$2 display=$3
shift 3
build=${BRINDLEMARK_BUILD:-$(cd "$(dirname "$0")/../.." && pwd)/build}
home=/tmp/ff-$name
rm -rf "$home"
mkdir -p "$home/run" "$home/alpha" "$home/Beta Folder" "$home/Desktop"
chmod 700 "$home/run"
export HOME=$home XDG_CONFIG_HOME=$home/.config XDG_DATA_HOME=$home/.local/share XDG_RUNTIME_DIR=$home/run
export XDG_CURRENT_DESKTOP=$desktop DISPLAY=:$display XDG_SESSION_TYPE=x11 LANG=C.UTF-8
[ "$desktop" = KDE ] && export KDE_SESSION_VERSION=5
Xvfb ":$display" -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 &
for _ in $(seq 100); do xprop -root >/dev/null 2>&1 && break; sleep 0.1; done
cat >"$home/session" <<SESSION
#!/usr/bin/env bash
openbox >/dev/null 2>&1 &
sleep 1
"$build/src/brindlemark" >"$home/brindlemark.log" 2>&1 &
sleep 2
"\$@" "$home/alpha" >"$home/file-manager-1.log" 2>&1 &
sleep 4
"\$@" "$home/Beta Folder" >"$home/file-manager-2.log" 2>&1 &
sleep 4
"$build/bench/front_folder_time" 51 >"$home/query-time" 2>&1
exec sleep infinity
SESSION
chmod +x "$home/session"
setsid dbus-run-session -- "$home/session" "$@" >/dev/null 2>&1 &
sleep 13
echo "$name on :$display; its home: $home"
cat "$home/query-time"
