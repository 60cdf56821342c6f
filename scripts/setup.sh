#!/usr/bin/env bash
# Installs the Debian packages VelmarBS needs, skipping what is already there.
# Safe to run again. Needs root (or sudo) only when something is missing.
# `scripts/setup.sh --fuzz` also installs what the fuzz targets need (only
# scripts/fuzz.sh asks for it; CI does not fuzz).
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config   # build
  libplist-dev                       # tests only: the oracle the property-list readers and writers must agree with
  qt6-base-dev qt6-qpa-plugins       # desktop application: widgets, print support, platforms
  fonts-dejavu-core                  # a fixed-pitch font for the log window
  libgtest-dev libgmock-dev          # tests
  libbenchmark-dev                   # benchmarks
  python3                            # the factory benchmark compares validate with plistlib
  7zip                               # reading .dmg source bundles
  xorriso                            # writing .dmg target bundles, listing ISO 9660 sources
  e2fsprogs                          # tests: mke2fs -d makes ext4 images read through 7-Zip
  xdg-utils                          # handing the log to the desktop's mail composer
  xvfb xauth                         # screenshots of the application in a virtual display
  help2man                           # the manual pages, made from --help at build time
  librsvg2-bin                       # rsvg-convert: the icon's PNG sizes, rendered at build time
  dpkg-dev file                      # the package: dpkg-shlibdeps finds the libraries' packages
  desktop-file-utils appstream       # checking the package's desktop entry and AppStream data
  man-db                             # checking the package's manual pages with man -l
  time                               # /usr/bin/time -v: peak memory in the tool benchmark
)
if [[ ${1:-} == --fuzz ]]; then
  packages+=(
    clang                            # libFuzzer instrumentation (the fuzz targets in fuzz/)
    libclang-rt-14-dev               # the libFuzzer runtime and clang's sanitizer runtimes
  )
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if ((${#missing[@]} == 0)); then
  echo "setup: all packages present"
  exit 0
fi

echo "setup: installing ${missing[*]}"
sudo=""
if [[ $(id -u) -ne 0 ]]; then sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
if ! { $sudo apt-get update -qq && $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
  tail -n 30 "$log"
  echo "setup: installing failed (full log: $log)" >&2
  exit 1
fi
rm -f "$log"
echo "setup: installed"
