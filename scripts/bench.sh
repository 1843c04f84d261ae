#!/usr/bin/env bash
# Builds Brindlemark and its benchmarks and prints the table. An argument sets the number of
# runs per figure (default 31).
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

build_project brindlemark bench_brindlemark
exec "$BRINDLEMARK_BUILD/bench/bench_brindlemark" "$@"
