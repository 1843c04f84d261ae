#!/usr/bin/env bash
# Builds Brindlemark with its tests and runs them through CTest. Arguments go to ctest,
# for example: bash scripts/test.sh -R tst_templates
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

build_project
ensure_packages python3 desktop-file-utils   # the file-manager menu tests
cd "$BRINDLEMARK_BUILD"
exec ctest --output-on-failure "$@"
