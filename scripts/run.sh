#!/usr/bin/env bash
# Builds Brindlemark and starts it. Arguments (brindlemark:// URLs) are passed on.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

build_project brindlemark
ensure_packages adwaita-icon-theme
app="$BRINDLEMARK_BUILD/src/brindlemark"

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
    ensure_packages xvfb xauth
    say "no display found: running on a virtual X display (Xvfb), so no window will be visible. Stop it with Ctrl-C."
    exec xvfb-run -a -s "-screen 0 1280x800x24" "$app" "$@"
fi
exec "$app" "$@"
