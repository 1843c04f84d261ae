#!/usr/bin/env bash
# The front folder under a real headless Wayland compositor with a real file manager: two windows
# on folders whose names hold a blank and an accented letter, Brindlemark running on Wayland, and
# "brindlemark --new-file" with the first window in front, after switching to the second, and with
# another application (a terminal) in front. Prints one line per case: the folder the file went
# to and the query's time, and saves screenshots in the session's home. Not part of the tests: it
# needs kwin-wayland and dolphin, gnome-shell and nautilus, or weston, and qt6-wayland.
#
#   scripts/desktop-check/wayland-front-folder.sh kwin|gnome|weston
#
# Its home is /tmp/wl-check-DESKTOP; everything it starts runs in its own D-Bus session (and, for
# GNOME Shell, its own system bus) and ends with it.
set -euo pipefail
desktop=$1
build=${BRINDLEMARK_BUILD:-$(cd "$(dirname "$0")/../.." && pwd)/build}
home=/tmp/wl-check-$desktop
socket=wl-ws-check-$desktop
here=$(cd "$(dirname "$0")" && pwd)

if [ -z "${WL_CHECK_INSIDE-}" ]; then
    rm -rf "$home"
    mkdir -p "$home/run" "$home/Dossier é 1" "$home/Größe Zwei" "$home/Desktop" "$home/bin"
    chmod 700 "$home/run"
    export HOME=$home XDG_CONFIG_HOME=$home/.config XDG_DATA_HOME=$home/.local/share XDG_RUNTIME_DIR=$home/run
    export LANG=C.UTF-8 WL_CHECK_INSIDE=1
    unset DISPLAY WAYLAND_DISPLAY
    if [ "$desktop" = gnome ]; then
        # GNOME Shell needs a system bus: one of its own, open to this user.
        cat >"$home/system.conf" <<CONF
<busconfig><type>system</type><listen>unix:path=$home/system_bus</listen><auth>EXTERNAL</auth>
<policy context="default"><allow user="*"/><allow own="*"/><allow send_destination="*"/><allow receive_sender="*"/></policy></busconfig>
CONF
        dbus-daemon --config-file="$home/system.conf" --fork --print-pid >"$home/system-bus.pid"
        export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$home/system_bus
        trap 'kill "$(cat "$home/system-bus.pid")" 2>/dev/null' EXIT
    fi
    setsid dbus-run-session -- "$0" "$@"
    exit
fi

# ---- inside the session ----------------------------------------------------------------------
pids=()
trap 'kill "${pids[@]}" 2>/dev/null; sleep 0.5; kill -9 "${pids[@]}" 2>/dev/null' EXIT
export WAYLAND_DISPLAY=$socket XDG_SESSION_TYPE=wayland QT_QPA_PLATFORM=wayland GDK_BACKEND=wayland
one="$home/Dossier é 1" two="$home/Größe Zwei"

case "$desktop" in
    kwin)
        # The packaged binary carries a file capability that a container may refuse: run a copy.
        cp /usr/bin/kwin_wayland "$home/bin/kwin_wayland"
        export XDG_CURRENT_DESKTOP=KDE KDE_SESSION_VERSION=5 KWIN_SCREENSHOT_NO_PERMISSION_CHECKS=1
        "$home/bin/kwin_wayland" --virtual --socket "$socket" --width 1280 --height 800 \
            --no-lockscreen --no-global-shortcuts >"$home/compositor.log" 2>&1 &
        pids+=($!)
        manager=(dolphin --new-window)
        # A KWin script makes the first window whose class and caption hold the text active.
        activate() {
            printf '%s\n' "var l = workspace.clientList();" \
                "for (var i = 0; i < l.length; ++i) if ((String(l[i].resourceClass) + '|' + l[i].caption).indexOf('$1') >= 0) { workspace.activeClient = l[i]; break; }" \
                >"$home/activate.js"
            local id
            id=$(gdbus call --session -d org.kde.KWin -o /Scripting -m org.kde.kwin.Scripting.loadScript \
                "$home/activate.js" activate | tr -dc 0-9)
            gdbus call --session -d org.kde.KWin -o "/$id" -m org.kde.kwin.Script.run >/dev/null
            sleep 0.5
            gdbus call --session -d org.kde.KWin -o /Scripting -m org.kde.kwin.Scripting.unloadScript activate >/dev/null
        }
        first="Dossier" second="Größe" other=wayland-terminal
        ;;
    gnome)
        export XDG_CURRENT_DESKTOP=GNOME
        # Brindlemark's extension as "Enable Extension" installs it, and a check-only one that
        # activates windows and takes screenshots, both in the Shell's list before it starts.
        BRINDLEMARK_FILE_MANAGERS="nautilus gnome-shell" "$build/src/PlugIns/BrindlemarkFinderSync.appex/install"
        mkdir -p "$XDG_DATA_HOME/gnome-shell/extensions/desktop-check@brindlemark.org"
        cp "$here/gnome-check-extension.js" "$XDG_DATA_HOME/gnome-shell/extensions/desktop-check@brindlemark.org/extension.js"
        printf '{"uuid": "desktop-check@brindlemark.org", "name": "desktop check", "description": "checks only", "shell-version": ["43", "44"]}\n' \
            >"$XDG_DATA_HOME/gnome-shell/extensions/desktop-check@brindlemark.org/metadata.json"
        gsettings set org.gnome.shell enabled-extensions \
            "$(gsettings get org.gnome.shell enabled-extensions | sed "s/]\$/, 'desktop-check@brindlemark.org']/")"
        gnome-shell --headless --wayland --no-x11 --virtual-monitor 1280x800 --wayland-display "$socket" \
            >"$home/compositor.log" 2>&1 &
        pids+=($!)
        manager=(nautilus --new-window)
        activate() {
            gdbus call --session -d org.brindlemark.DesktopCheck -o /org/brindlemark/DesktopCheck \
                -m org.brindlemark.DesktopCheck.Activate "$1" >/dev/null
            sleep 0.5
        }
        first=window/1 second=window/2 other=wayland-terminal
        ;;
    weston)
        export XDG_CURRENT_DESKTOP=weston
        weston --backend=headless-backend.so --socket="$socket" --width=1280 --height=800 --use-pixman \
            --debug --idle-time=0 >"$home/compositor.log" 2>&1 &
        pids+=($!)
        manager=(nautilus --new-window)
        activate() { :; } # weston offers no way to switch windows from outside
        first="" second="" other=""
        ;;
esac
for _ in $(seq 100); do [ -S "$XDG_RUNTIME_DIR/$socket" ] && break; sleep 0.1; done
sleep 3
# GNOME Shell takes a while longer to load its extensions.
for _ in $(seq 300); do
    [ "$desktop" != gnome ] && break
    gdbus call --session -d org.freedesktop.DBus -o /org/freedesktop/DBus -m org.freedesktop.DBus.NameHasOwner \
        org.brindlemark.DesktopCheck | grep -q true && break
    sleep 0.1
done

screenshot() {
    case "$desktop" in
        kwin) "$build/bench/kwin_screenshot" "$home/$1.png" ;;
        gnome)
            gdbus call --session -d org.brindlemark.DesktopCheck -o /org/brindlemark/DesktopCheck \
                -m org.brindlemark.DesktopCheck.Screenshot "$home/$1.png" >/dev/null
            ;;
        weston) (cd "$home" && weston-screenshooter >/dev/null 2>&1 && mv -f wayland-screenshot-*.png "$1.png") ;;
    esac
}

"$build/src/brindlemark" --background >"$home/brindlemark.log" 2>&1
weston-terminal >/dev/null 2>&1 &
pids+=($!)
sleep 1
"${manager[@]}" "$one" >"$home/file-manager-1.log" 2>&1 &
pids+=($!)
sleep 4

# One case: the new file's folder (or where else it went) and the query's median time.
check() {
    local label=$1 made
    touch "$home/marker"
    sleep 0.1
    "$build/src/brindlemark" --new-file
    for _ in $(seq 50); do
        made=$(find "$home" -name 'New Text File*.txt' -newer "$home/marker" -printf '%h\n' | head -1)
        [ -n "$made" ] && break
        sleep 0.1
    done
    printf '%-8s %-40s %-16s %s\n' "$desktop" "$label" "${made#"$home"/}" \
        "$("$build/bench/front_folder_time" 21 | sed -n 's/.*median: \([0-9.]* ms\).*/\1/p')"
    screenshot "$(echo "$label" | tr -c 'a-z0-9\n' '-')"
}

check "one window"
"${manager[@]}" "$two" >"$home/file-manager-2.log" 2>&1 &
pids+=($!)
sleep 4
check "two windows, the second in front"
if [ -n "$first" ]; then
    activate "$first"
    check "switched to the first"
    activate "$other"
    check "a terminal in front (first used last)"
    activate "$second"
    activate "$other"
    check "a terminal in front (second used last)"
fi
