# Shared by run.sh and test.sh: installs missing Debian packages and builds the project.
set -euo pipefail

BRINDLEMARK_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
BRINDLEMARK_BUILD="${BRINDLEMARK_BUILD:-$BRINDLEMARK_ROOT/build}"
BUILD_PACKAGES=(cmake g++ make pkg-config qt6-base-dev qt6-qpa-plugins libxcb1-dev nlohmann-json3-dev)

say() { printf 'brindlemark: %s\n' "$*" >&2; }

# Installs the named Debian packages that are not installed yet, as root or through sudo.
ensure_packages() {
    if ! command -v dpkg-query >/dev/null 2>&1; then
        say "not a Debian system: make sure these are installed: $*"
        return 0
    fi
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        if command -v sudo >/dev/null 2>&1; then
            sudo=(sudo)
        else
            say "these packages are missing and installing them needs root (or sudo): ${missing[*]}"
            exit 1
        fi
    fi
    say "installing ${missing[*]}"
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# Configures and builds the given targets, or everything.
build_project() {
    ensure_packages "${BUILD_PACKAGES[@]}"
    say "building in ${BRINDLEMARK_BUILD#"$PWD"/}"
    cmake -S "$BRINDLEMARK_ROOT" -B "$BRINDLEMARK_BUILD" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
    local targets=()
    for target in "$@"; do targets+=(--target "$target"); done
    cmake --build "$BRINDLEMARK_BUILD" -j "$(nproc)" "${targets[@]}"
}
