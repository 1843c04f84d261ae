#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a while.
#   bash scripts/fuzz.sh            10 seconds each; new inputs go to a temporary folder
#   bash scripts/fuzz.sh 600 --keep 10 minutes each; inputs that find new paths are kept in
#                                   tests/fuzz/corpus/ (commit them)
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

seconds=${1:-10}
keep=${2:-}
ensure_packages "${BUILD_PACKAGES[@]}" clang libclang-rt-14-dev
build="$BRINDLEMARK_ROOT/build-fuzz"
say "building the fuzz targets with clang and the sanitizers in build-fuzz/ (a few minutes the first time)"
CXX=clang++ cmake -S "$BRINDLEMARK_ROOT" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DBRINDLEMARK_FUZZ=ON -DBUILD_TESTING=OFF >/dev/null
targets=(fuzz_url fuzz_templates fuzz_pluginkit)
# Shows each target as it is linked; the whole log is in build-fuzz/build.log.
if ! cmake --build "$build" -j "$(nproc)" --target "${targets[@]}" 2>&1 | tee "$build/build.log" |
    { grep --line-buffered -E '^\[ *[0-9]+%\] Linking' | sed -u 's/^/brindlemark: /' >&2 || true; }; then
    say "the fuzz build failed:"
    tail -30 "$build/build.log" >&2
    exit 1
fi
say "running each fuzz target for $seconds seconds"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0
for target in "${targets[@]}"; do
    corpus="$BRINDLEMARK_ROOT/tests/fuzz/corpus/${target#fuzz_}"
    if [ "$keep" = "--keep" ]; then
        folders=("$corpus")
    else
        mkdir -p "$scratch/$target"
        folders=("$scratch/$target" "$corpus")
    fi
    # Crash reproducers land in the scratch folder, and their path is printed.
    if (cd "$scratch" && "$build/tests/fuzz/$target" -max_total_time="$seconds" -timeout=10 \
            -rss_limit_mb=2048 "${folders[@]}" >"$scratch/$target.log" 2>&1); then
        say "$target: $(grep -Eo 'Done [0-9]+ runs in [0-9]+ second.*' "$scratch/$target.log" | tail -1)"
        if [ "$keep" = "--keep" ]; then
            # Keep only the inputs that each add coverage.
            mkdir -p "$scratch/$target.min"
            "$build/tests/fuzz/$target" -merge=1 "$scratch/$target.min" "$corpus" >/dev/null 2>&1 &&
                rm -rf "$corpus" && mv "$scratch/$target.min" "$corpus"
        fi
    else
        failed=1
        say "$target FAILED:"
        tail -40 "$scratch/$target.log" >&2
    fi
done
exit $failed
