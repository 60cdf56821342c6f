#!/usr/bin/env bash
# Checks a velmarbs_*.deb as CI does: unpacked with dpkg -x into a scratch
# root (nothing is installed), the tool must run from there, strip the sample
# bundle and print its version, the application must find its tool at the
# installed place, and the desktop entry, AppStream data, manual pages and
# bash completion must pass their checkers. LD_LIBRARY_PATH is left alone:
# the package must work with nothing but its declared dependencies.
# Usage: scripts/check-package.sh [velmarbs_VERSION_ARCH.deb]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
id=com.example.VelmarBS

fail() { echo "check-package: FAILED: $*" >&2; exit 1; }
step() { echo "check-package: $*"; }
same() { [[ $1 == "$2" ]] || fail "$3: expected \"$2\", got \"$1\""; }

deb=${1:-}
if [[ -z $deb ]]; then
  debs=("$root"/velmarbs_*.deb)
  [[ -f ${debs[0]} ]] || fail "no velmarbs_*.deb in $root; run scripts/package.sh"
  deb=${debs[0]}
fi
[[ -f $deb ]] || fail "no such package: $deb"
deb=$(cd "$(dirname "$deb")" && pwd)/$(basename "$deb")

scratch=$(mktemp -d "${TMPDIR:-/tmp}/velmarbs-check-XXXXXX")
trap 'rm -rf "$scratch"' EXIT
r=$scratch/root

# --- The package's control fields --------------------------------------------
version=$(sed -n 's/^project(VelmarBS VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
arch=$(dpkg --print-architecture)
step "control fields of $(basename "$deb")"
same "$(basename "$deb")" "velmarbs_${version}_${arch}.deb" "file name"
same "$(dpkg-deb -f "$deb" Package)" velmarbs "Package"
same "$(dpkg-deb -f "$deb" Version)" "$version" "Version"
same "$(dpkg-deb -f "$deb" Architecture)" "$arch" "Architecture"
same "$(dpkg-deb -f "$deb" Section)" utils "Section"
depends=$(dpkg-deb -f "$deb" Depends)
for dep in 7zip xorriso libc6 'libstdc\+\+6' libqt6widgets6 libqt6printsupport6; do
  grep -Eq "(^|, )($dep)( |,|$)" <<<"$depends" || fail "Depends lacks $dep: $depends"
done
[[ -n $(dpkg-deb -f "$deb" Description) ]] || fail "no Description"

# --- What it holds -----------------------------------------------------------
step "unpacking into a scratch root"
dpkg-deb -x "$deb" "$r"
expected=(
  usr/bin/velmarbs
  usr/bin/velmarbs-gui
  usr/libexec/velmarbs/velmarbs
  usr/share/man/man1/velmarbs.1.gz
  usr/share/man/man1/velmarbs-gui.1.gz
  usr/share/applications/$id.desktop
  usr/share/metainfo/$id.metainfo.xml
  usr/share/icons/hicolor/scalable/apps/$id.svg
  usr/share/bash-completion/completions/velmarbs
  usr/share/doc/velmarbs/README.md
)
for size in 16 22 24 32 48 64 128 256 512; do
  expected+=("usr/share/icons/hicolor/${size}x${size}/apps/$id.png")
done
for f in "${expected[@]}"; do
  [[ -f $r/$f ]] || fail "the package lacks /$f"
done
unexpected=$(cd "$r" && find . -type f | sed 's:^\./::' | sort | comm -23 - <(printf '%s\n' "${expected[@]}" | sort))
[[ -z $unexpected ]] || fail "files nobody asked for: $unexpected"
for size in 16 48 256; do
  file -b "$r/usr/share/icons/hicolor/${size}x${size}/apps/$id.png" | grep -q "PNG image data, $size x $size" ||
    fail "the ${size}x${size} icon is not a $size-pixel PNG"
done

for exe in usr/bin/velmarbs usr/bin/velmarbs-gui usr/libexec/velmarbs/velmarbs; do
  [[ -x $r/$exe ]] || fail "/$exe is not executable"
  ! readelf -d "$r/$exe" | grep -Eq 'RPATH|RUNPATH' || fail "/$exe carries a run path"
  ! ldd "$r/$exe" | grep -q 'not found' || fail "/$exe misses libraries: $(ldd "$r/$exe" | grep 'not found')"
  file -b "$r/$exe" | grep -q ', stripped' || fail "/$exe is not stripped"
done

# --- The tool, run from the scratch root -------------------------------------
step "velmarbs --version"
same "$("$r/usr/bin/velmarbs" --version)" "velmarbs $version" "velmarbs --version"
same "$("$r/usr/libexec/velmarbs/velmarbs" --version)" "velmarbs $version" "the application's velmarbs --version"

step "a strip of sample/Bundle for r13 and ss"
"$r/usr/bin/velmarbs" --source "$root/sample/Bundle" --target "$scratch/Stripped" --product r13 --factory ss \
  >"$scratch/strip.log" 2>&1 || { cat "$scratch/strip.log"; fail "the strip failed"; }
same "$(cat "$scratch/Stripped/Restore/Firmware/target_map.txt")" "r13 xr2120x Corvid2,1" "target_map.txt"
same "$(readlink "$scratch/Stripped/Restore/R13UserOS.dmg")" "038-1300-001.dmg" "the UserOS link"
grep -q "<string>velmarbs -- Version $version," "$scratch/Stripped/VelmarBSCookie.plist" || fail "the cookie lacks the version"
[[ ! -e $scratch/Stripped/Restore/Diags/diag-r11.img ]] || fail "r11's diagnostics were kept"

# --- The application ----------------------------------------------------------
step "velmarbs-gui finds its tool at the installed place"
export QT_QPA_PLATFORM=offscreen
same "$("$r/usr/bin/velmarbs-gui" --print-tool-path)" "$r/usr/libexec/velmarbs/velmarbs" "velmarbs-gui --print-tool-path"
same "$("$r/usr/bin/velmarbs-gui" --version)" "velmarbs-gui $version" "velmarbs-gui --version"

step "velmarbs-gui starts with a bundle given on the command line"
home=$scratch/home
mkdir -p "$home/.config/VelmarBS"
chmod 700 "$home"
# r99 is not in the sample: only a scan by the tool takes it out again.
printf '[General]\nproducts=r13, r99\n' >"$home/.config/VelmarBS/VelmarBS.conf"
status=0
(cd "$root/sample" && HOME=$home XDG_CONFIG_HOME= XDG_STATE_HOME= XDG_RUNTIME_DIR=$home \
  timeout 10 "$r/usr/bin/velmarbs-gui" Bundle) >"$scratch/gui.log" 2>&1 || status=$?
[[ $status == 124 ]] || { cat "$scratch/gui.log"; fail "velmarbs-gui ended by itself with status $status"; }
[[ -f $home/.local/state/VelmarBS/VelmarBS.log ]] || fail "no log in ~/.local/state/VelmarBS"
[[ ! -e $home/Library ]] || fail "a ~/Library folder was made"
grep -q "lastSourceSelected=$root/sample/Bundle" "$home/.config/VelmarBS/VelmarBS.conf" ||
  fail "the bundle given was not chosen as the source"
grep -qx "products=r13" "$home/.config/VelmarBS/VelmarBS.conf" ||
  fail "the bundle was not scanned with the installed tool: $(cat "$home/.config/VelmarBS/VelmarBS.conf")"

# --- Desktop entry, AppStream data -------------------------------------------
step "desktop-file-validate, appstreamcli validate"
desktop-file-validate "$r/usr/share/applications/$id.desktop" || fail "desktop-file-validate"
appstreamcli validate --no-net --explain "$r/usr/share/metainfo/$id.metainfo.xml" || fail "appstreamcli validate"
grep -q "<release version=\"$version\"" "$r/usr/share/metainfo/$id.metainfo.xml" ||
  fail "the AppStream release is not $version"

# --- Manual pages ----------------------------------------------------------
for page in velmarbs velmarbs-gui; do
  step "man -l $page.1.gz"
  LC_ALL=C.UTF-8 MANWIDTH=80 MAN_KEEP_FORMATTING= man --warnings -E UTF-8 -l "$r/usr/share/man/man1/$page.1.gz" \
    >"$scratch/$page.txt" 2>"$scratch/$page.err" || fail "man -l $page.1.gz"
  [[ ! -s $scratch/$page.err ]] || { cat "$scratch/$page.err"; fail "man warns about $page.1.gz"; }
  for section in NAME SYNOPSIS DESCRIPTION FILES EXAMPLES 'SEE ALSO'; do
    grep -q "^$section" "$scratch/$page.txt" || fail "$page(1) has no $section section"
  done
done
grep -q 'Exit status' "$scratch/velmarbs.txt" || fail "velmarbs(1) does not give the exit statuses"

# Every word --help names stands in the manual page and the completion.
help_words=$("$r/usr/bin/velmarbs" --help | grep -o -- '--[A-Za-z][A-Za-z-]*' | sort -u)
man_words=$(sed 's/‐/-/g' "$scratch/velmarbs.txt" | grep -o -- '--[A-Za-z][A-Za-z-]*' | sort -u)
completion=$r/usr/share/bash-completion/completions/velmarbs
completion_words=$(sed -n "/local words='/,/'/p" "$completion" | grep -o -- '--[A-Za-z][A-Za-z-]*' | sort -u)
missing=$(comm -23 <(echo "$help_words") <(echo "$man_words"))
[[ -z $missing ]] || fail "velmarbs(1) lacks $missing"
same "$completion_words" "$help_words" "the completion's words against --help"

# --- Bash completion ---------------------------------------------------------
step "bash completion"
complete_line() {  # words...; the last is the word being completed
  (cd "$scratch" && bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _velmarbs;
    printf "%s\n" "${COMPREPLY[@]}" | sort | tr "\n" " "' _ "$completion" "$@")
}
same "$(complete_line velmarbs --engine '')" "auto legacy manifest " "--engine"
same "$(complete_line velmarbs --unpersonalized '')" "off on " "--unpersonalized"
same "$(complete_line velmarbs --keepD)" "--keepDebug --keepDevFirmware " "--keepD"
mkdir -p "$scratch/pick/Folder"
touch "$scratch/pick/a.dmg" "$scratch/pick/notes.txt"
same "$(complete_line velmarbs --source pick/)" "pick/Folder pick/a.dmg " "--source pick/"
same "$(complete_line velmarbs --target pick/n)" "pick/notes.txt " "--target pick/n (no image or folder)"
same "$(complete_line "$r/usr/bin/velmarbs" --source "$root/sample/Bundle" --product '')" "r11 r13 " "--product"

step "all checks passed for $(basename "$deb")"
