#!/usr/bin/env bash
# Screenshots of Brindlemark's window under the openbox window manager on an Xvfb display:
# light and dark (GTK's Adwaita through Qt's GTK theme plugin), at the given desktop font size,
# optionally scaled. Not part of the tests; needs xvfb, openbox, imagemagick and
# qt6-gtk-platformtheme.
#
#   scripts/desktop-check/window-shots.sh OUT.png light|dark POINTS [SCALE]
set -euo pipefail
out=$1 theme=$2 points=$3 scale=${4:-1}
build=${BRINDLEMARK_BUILD:-$(cd "$(dirname "$0")/../.." && pwd)/build}
home=$(mktemp -d /tmp/shots-XXXX)
mkdir -p "$home/run" "$home/.config/gtk-3.0" && chmod 700 "$home/run"
printf '[Settings]\ngtk-font-name=DejaVu Sans %s\ngtk-application-prefer-dark-theme=%s\n' \
    "$points" "$([ "$theme" = dark ] && echo true || echo false)" >"$home/.config/gtk-3.0/settings.ini"
display=$((200 + RANDOM % 100))
Xvfb ":$display" -screen 0 $((1600 * scale))x$((1000 * scale))x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb 2>/dev/null; rm -rf "$home"' EXIT
export DISPLAY=:$display HOME=$home XDG_CONFIG_HOME=$home/.config XDG_DATA_HOME=$home/.local/share \
    XDG_RUNTIME_DIR=$home/run QT_QPA_PLATFORMTHEME=gtk3 QT_SCALE_FACTOR=$scale
[ "$theme" = dark ] && export GTK_THEME=Adwaita:dark
sleep 1
openbox >/dev/null 2>&1 &
sleep 1
"$build/src/brindlemark-app" >/dev/null 2>&1 &
app=$!
sleep 3
import -window root "$out"
kill $app 2>/dev/null || true
