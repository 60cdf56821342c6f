#!/usr/bin/env bash
# Builds VelmarBS and packs it into velmarbs_<version>_<arch>.deb in the
# repository root (or $VELMAR_PACKAGE_DIR). Uses ./build (or
# $VELMAR_BUILD_DIR), so after scripts/test.sh only the package is new.
# Install the result with: apt install ./velmarbs_*.deb
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${VELMAR_BUILD_DIR:-$root/build}
out=${VELMAR_PACKAGE_DIR:-$root}

"$root/scripts/setup.sh"

# The same package from the same commit: dates (manual pages, the AppStream
# release) follow the last commit, not the clock.
if [[ -z ${SOURCE_DATE_EPOCH:-} ]] && git -C "$root" rev-parse --git-dir >/dev/null 2>&1; then
  SOURCE_DATE_EPOCH=$(git -C "$root" log -1 --format=%ct)
  export SOURCE_DATE_EPOCH
fi

# cpack installs first; with the ALL dependency skipped it does not build the
# tests and benchmarks as well.
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_SKIP_INSTALL_ALL_DEPENDENCY=ON >/dev/null
# Only what the package holds; tests and benchmarks are scripts/test.sh's.
ninja -C "$build" velmarbs VelmarBS velmar_man_pages velmar_icons

rm -f "$build"/velmarbs_*.deb
(cd "$build" && cpack -G DEB >/dev/null) || {
  echo "package: cpack failed; see $build/_CPack_Packages/Linux/DEB/*.log" >&2
  exit 1
}
debs=("$build"/velmarbs_*.deb)
if ((${#debs[@]} != 1)) || [[ ! -f ${debs[0]} ]]; then
  echo "package: expected one velmarbs_*.deb in $build" >&2
  exit 1
fi
mkdir -p "$out"
rm -f "$out"/velmarbs_*.deb
mv "${debs[0]}" "$out/"
echo "$out/$(basename "${debs[0]}")"
