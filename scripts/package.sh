#!/usr/bin/env bash
# Builds Brindlemark's Debian package for this machine's architecture (CPack's DEB generator, see
# packaging/linux/Package.cmake), checks it with lintian and by its contents, and prints its path
# as the last line. Install it with `sudo apt install ./brindlemark_VERSION_ARCH.deb`.
#
#   bash scripts/package.sh                  builds, runs lintian and the content check
#   bash scripts/package.sh --check DEB      lintian and the content check of a package made before
#   bash scripts/package.sh --contents DEB   the content check alone
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

PACKAGE_BUILD="${BRINDLEMARK_PACKAGE_BUILD:-$BRINDLEMARK_ROOT/build-package}"
APP_ID=org.brindlemark.Brindlemark
APPEX=usr/libexec/brindlemark/PlugIns/BrindlemarkFinderSync.appex

# What an installed Brindlemark needs, checked in the package itself: its paths, the lines of the
# two desktop entries that make it start at login and handle brindlemark:// URLs, its icons, and
# its dependencies. Prints every problem and fails when there is one.
check_contents() {
    local deb=$1 tree problems=() path line
    tree=$(mktemp -d)
    # shellcheck disable=SC2064 # the folder is known now
    trap "rm -rf '$tree'" RETURN
    if ! dpkg-deb -x "$deb" "$tree/root" || ! dpkg-deb -e "$deb" "$tree/control"; then
        say "$deb: not a Debian package"
        return 1
    fi
    for path in usr/bin/brindlemark usr/libexec/brindlemark/{brindlemark-app,brindlemark-pluginkit,brindlemark-open,brindlemark-killall,brindlemark-doctor} \
        "$APPEX"/{install,uninstall,brindlemark-menu-action}; do
        [ -f "$tree/root/$path" ] && [ -x "$tree/root/$path" ] || problems+=("no program /$path")
    done
    for path in "$APPEX"/{Info.ini,brindlemark_menu.py,default-templates.json} usr/share/doc/brindlemark/copyright \
        usr/share/icons/hicolor/scalable/apps/$APP_ID{,-symbolic}.svg usr/share/icons/hicolor/{16x16,22x22,24x24,32x32,48x48,64x64,128x128,256x256}/apps/$APP_ID.png; do
        [ -f "$tree/root/$path" ] || problems+=("no file /$path")
    done
    local desktop=usr/share/applications/$APP_ID.desktop autostart=etc/xdg/autostart/$APP_ID.desktop
    for line in "$desktop:Exec=/usr/bin/brindlemark %U" "$desktop:TryExec=/usr/bin/brindlemark" "$desktop:MimeType=x-scheme-handler/brindlemark;" \
        "$autostart:Exec=/usr/bin/brindlemark --background" "$autostart:TryExec=/usr/bin/brindlemark" "$autostart:Type=Application"; do
        grep -qxF -- "${line#*:}" "$tree/root/${line%%:*}" 2>/dev/null || problems+=("/${line%%:*} lacks the line ${line#*:}")
    done
    grep -qxF "/$autostart" "$tree/control/conffiles" 2>/dev/null || problems+=("/$autostart is not a conffile")
    # Installed under /usr and /etc only (nothing of the build machine's own paths), owned by root.
    while read -r path; do
        case "$path" in ./ | ./usr/* | ./etc/*) ;; *) problems+=("installs ${path#.} outside /usr and /etc") ;; esac
    done < <(dpkg-deb -c "$deb" | awk '{ print $6 }')
    dpkg-deb -c "$deb" | awk '$2 != "root/root" { exit 1 }' || problems+=("files not owned by root")
    local depends
    depends=$(dpkg-deb -f "$deb" Depends)
    for line in libqt6widgets6 qt6-qpa-plugins python3 xdg-utils desktop-file-utils; do
        [[ ", $depends," =~ ,\ $line[\ ,] ]] || problems+=("does not depend on $line")
    done
    if [ ${#problems[@]} -gt 0 ]; then
        printf 'brindlemark: %s: %s\n' "$deb" "${problems[@]}" >&2
        return 1
    fi
    say "$deb: contents as expected"
}

check_package() {
    say "lintian $1"
    lintian --fail-on error --info "$1"
    check_contents "$1"
}

case "${1:-}" in
    --contents)
        check_contents "$2"
        exit
        ;;
    --check)
        ensure_packages lintian
        check_package "$2"
        printf '%s\n' "$(realpath "$2")"
        exit
        ;;
    "") ;;
    *)
        say "usage: bash scripts/package.sh [--check DEB | --contents DEB]"
        exit 2
        ;;
esac

# dpkg-shlibdeps (dpkg-dev) finds the libraries of the programs that `file` finds ELF.
ensure_packages "${BUILD_PACKAGES[@]}" dpkg-dev file lintian
# Debian's hardening flags (stack protector, fortified functions, read-only relocations).
export CXXFLAGS="${CXXFLAGS-$(DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get CXXFLAGS)}"
export CPPFLAGS="${CPPFLAGS-$(DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get CPPFLAGS)}"
export LDFLAGS="${LDFLAGS-$(DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get LDFLAGS)}"
CXXFLAGS="$CXXFLAGS $CPPFLAGS"
say "building the package in ${PACKAGE_BUILD#"$PWD"/}"
cmake -S "$BRINDLEMARK_ROOT" -B "$PACKAGE_BUILD" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
    -DBUILD_TESTING=OFF >/dev/null
cmake --build "$PACKAGE_BUILD" -j "$(nproc)"
rm -f "$PACKAGE_BUILD"/brindlemark_*.deb
(cd "$PACKAGE_BUILD" && cpack -G DEB >/dev/null)
deb=$(ls "$PACKAGE_BUILD"/brindlemark_*_"$(dpkg --print-architecture)".deb)
check_package "$deb"
printf '%s\n' "$deb"
