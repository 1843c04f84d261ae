#!/usr/bin/env bash
# Fails when a C++ file of the repository is not formatted as .clang-format says, and names it.
#   bash scripts/check-format.sh          checks every tracked .cpp and .h file
#   bash scripts/check-format.sh --fix    formats them in place
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

ensure_packages clang-format git
cd "$BRINDLEMARK_ROOT"
mapfile -t files < <(git ls-files -- '*.cpp' '*.h')
if [ "${1:-}" = "--fix" ]; then
    clang-format -i "${files[@]}"
    exit 0
fi
if ! clang-format --dry-run -Werror "${files[@]}" 2>"${TMPDIR:-/tmp}/brindlemark-format.$$"; then
    grep -E '^[^ ].*: error:' "${TMPDIR:-/tmp}/brindlemark-format.$$" | cut -d: -f1 | sort -u |
        sed 's/^/brindlemark: not formatted: /' >&2
    rm -f "${TMPDIR:-/tmp}/brindlemark-format.$$"
    say "run 'bash scripts/check-format.sh --fix' to format them"
    exit 1
fi
rm -f "${TMPDIR:-/tmp}/brindlemark-format.$$"
