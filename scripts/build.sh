#!/usr/bin/env bash
# Configures and builds into ./build (or $VELMAR_BUILD_DIR); $VELMAR_CMAKE_ARGS
# adds options (the sanitizer build of .ci/run uses it).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${VELMAR_BUILD_DIR:-$root/build}
# shellcheck disable=SC2086  # the options are separate words
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo ${VELMAR_CMAKE_ARGS:-} >/dev/null
ninja -C "$build"
