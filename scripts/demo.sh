#!/usr/bin/env bash
# Installs what is missing, builds, and strips the sample bundle for product
# r13 and station ss into ./build/demo/Stripped, then shows what was written.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${VELMAR_BUILD_DIR:-$root/build}
"$root/scripts/setup.sh"
"$root/scripts/build.sh"
out="$build/demo/Stripped"
mkdir -p "$build/demo"
"$build/tool/velmarbs" --source "$root/sample/Bundle" --target "$out" \
  --product r13 --factory ss --ov
echo
echo "Stripped bundle written to $out:"
(cd "$out" && find . -mindepth 1 \( -type l -printf '  %P -> %l\n' \) -o -printf '  %P\n' | sort)
