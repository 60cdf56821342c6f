#!/usr/bin/env bash
# The whole tool's benchmark in one command: builds velmarbs and the bundle
# maker into ./build (or $VELMAR_BUILD_DIR), then times them against
# plistlib and cp (bench/tool_bench.py; its options pass through, e.g.
# --runs 3 or --sizes 1,10). Writes the plot to docs/validate-time.svg.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${VELMAR_BUILD_DIR:-$root/build}
"$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C "$build" velmarbs velmar-mkbundle
cd "$root"
exec python3 "$root/bench/tool_bench.py" --build "$build" "$@"
