#!/usr/bin/env bash
# Builds Brindlemark and its benchmarks and prints the table: every row's median with its
# baseline's, measured in the same run, round by round in turn. An argument sets the number of
# rounds per row (default 31). The benchmark runs on an X server of its own (Xvfb) in a temporary
# home.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

ensure_packages xvfb
build_project bench_brindlemark
exec "$BRINDLEMARK_BUILD/bench/bench_brindlemark" "$@"
