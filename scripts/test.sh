#!/usr/bin/env bash
# Checks the C++ formatting, builds Brindlemark with its tests, runs each fuzz target briefly,
# and runs the tests through CTest. Arguments go to ctest (and skip the formatting check and the
# fuzz runs), for example:
#   bash scripts/test.sh -R tst_templates
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# Unformatted C++ fails the full run before anything is built.
if [ $# -eq 0 ]; then
    bash "$BRINDLEMARK_ROOT/scripts/check-format.sh"
fi
build_project
ensure_packages python3 desktop-file-utils xvfb dbus-daemon   # the menu tests; an X server and a bus of the tests' own
# A short run of every fuzz target first (a clang build of its own), then the test suite.
if [ $# -eq 0 ]; then
    bash "$BRINDLEMARK_ROOT/scripts/fuzz.sh" 10
fi
cd "$BRINDLEMARK_BUILD"
exec ctest --output-on-failure "$@"
