#!/usr/bin/env bash
# Runs one libFuzzer target for a while: scripts/fuzz.sh TARGET SECONDS [libFuzzer flags...]
# TARGET is plist_reader_fuzz, tool_output_fuzz, engine_fuzz or
# image_listing_fuzz. Builds it with clang into build-fuzz/ (or
# $VELMAR_FUZZ_BUILD_DIR) first. New inputs
# that add coverage go to build-fuzz/corpus/TARGET, so the committed seeds in
# fuzz/corpus/TARGET stay as they are; a crash is written to
# build-fuzz/findings/ and the script exits non-zero.
set -euo pipefail
if (($# < 2)); then
  echo "usage: scripts/fuzz.sh TARGET SECONDS [libFuzzer flags...]" >&2
  exit 2
fi
target=$1
seconds=$2
shift 2
root=$(cd "$(dirname "$0")/.." && pwd)
build=${VELMAR_FUZZ_BUILD_DIR:-$root/build-fuzz}
"$root/scripts/setup.sh" --fuzz >/dev/null
if [[ ! -f $build/build.ninja ]]; then
  CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVELMAR_FUZZ=ON -DVELMAR_BUILD_APP=OFF -DVELMAR_BUILD_TESTS=OFF -DVELMAR_BUILD_BENCH=OFF \
    >/dev/null
fi
ninja -C "$build" "$target"
corpus=$build/corpus/$target
mkdir -p "$corpus" "$build/findings"
seeds=$root/fuzz/corpus/$target
# Leaks are reported at exit only; the limits keep a slow or greedy input a
# finding, not a stuck run.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
exec "$build/fuzz/$target" "$corpus" "$seeds" -max_total_time="$seconds" -timeout=10 \
  -rss_limit_mb=2048 -max_len=262144 -print_final_stats=1 \
  -artifact_prefix="$build/findings/$target-" "$@"
