#!/bin/bash
# A bundle read from a disk image against the same bundle as a folder, side
# by side: a query (--validproducts), a validate and a strip (to a folder),
# for images of 1 GB and 4 GB, made by the tool's own image writer
# (xorriso, ISO 9660), and the same as ext4 images (mke2fs), which go
# through 7-Zip as the UDIF images real bundles come in do. The image is
# read cold (empty cache: listing included) and warm (the listing and the
# files read before come from the cache, as for the desktop's later scan
# queries, its validate and its strip).
#
#   bench/image_bench.sh [BUILD_DIR] [SIZES_IN_GB...]
#
# Needs xorriso, 7-Zip and about 2.5 x the largest size free in $TMPDIR
# (the payload files are sparse; the images are not). Times are wall-clock
# seconds, medians of several runs (queries and validates: seven; strips:
# fifteen; cold: five, cold strips three; listings: three); beside the ratio
# of the wall-clock times, the ratio of processor times (user and system,
# children included), and the ratio of the shortest wall-clock times. On a
# virtual machine a strip's gigabyte of fresh page cache costs anything from
# 0.35 s to 3.5 s of system time from one run to the next, on either side,
# whatever else the machine does; the shortest time is then the one least
# disturbed, and many rounds steady the medians. Folder and image
# runs alternate, so both see the same load, and both sides start from the
# same state: the source's bytes in the page cache (an untimed run of each
# comes first) and, before every strip, the writeback of everything written
# so far flushed (sync), so that no run pays for the gigabyte the run before
# it wrote.

set -euo pipefail

build=${1:-build}
shift || true
sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(1 4)
velmarbs=$(realpath "$build/tool/velmarbs")
mkbundle=$(realpath "$build/synth/velmar-mkbundle")
sevenzip=$(command -v 7zz || command -v 7z || command -v 7za)
xorriso=$(command -v xorriso)

work=$(mktemp -d "${TMPDIR:-/tmp}/velmar-image-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT
export XDG_CACHE_HOME=$work/cache

largest=0
for s in "${sizes[@]}"; do [ "$s" -gt "$largest" ] && largest=$s; done
free_kb=$(df -Pk "$work" | awk 'NR==2 {print $4}')
need_kb=$((largest * 1024 * 1024 * 5 / 2))
if [ "$free_kb" -lt "$need_kb" ]; then
  echo "image_bench: need $((need_kb / 1024 / 1024)) GB free in $work, have $((free_kb / 1024 / 1024)) GB" >&2
  exit 1
fi

# Seconds a command took, to the millisecond: wall-clock time, then the
# processor time (user and system) of the command and its children, which
# other work on a shared machine disturbs far less.
seconds() {
  local start end
  start=$(date +%s%N)
  local cpu
  cpu=$( ("$@" >/dev/null 2>&1 || true; times) | awk 'NR == 2 {
    split($1, u, "m"); split($2, s, "m"); sub("s", "", u[2]); sub("s", "", s[2]);
    printf "%.3f", u[1] * 60 + u[2] + s[1] * 60 + s[2] }')
  end=$(date +%s%N)
  echo "$(echo $(((end - start) / 1000000)) | awk '{printf "%.3f", $1 / 1000}') $cpu"
}

# The median of the numbers given.
median() {
  printf '%s\n' "$@" | sort -g | awk '{v[NR] = $1} END {
    if (NR % 2) printf "%.3f", v[(NR + 1) / 2]; else printf "%.3f", (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# The medians of the wall-clock and the processor times of "wall cpu"
# pairs, and the shortest wall-clock time: "wall cpu best".
medians() {
  local walls=() cpus=() pair
  for pair in "$@"; do
    walls+=("${pair% *}")
    cpus+=("${pair#* }")
  done
  echo "$(median "${walls[@]}") $(median "${cpus[@]}") $(printf '%s\n' "${walls[@]}" | sort -g | head -1)"
}

# The medians of N runs of a command; `prepare` (a function name) runs
# first, untimed. Prints "wall cpu best".
typical() {
  local runs=$1 prepare=$2 times=() i
  shift 2
  for ((i = 0; i < runs; i++)); do
    $prepare
    times+=("$(seconds "$@")")
  done
  medians "${times[@]}"
}

# Two commands run by turns, so both see the same load on a shared machine:
# duel RUNS PREPARE_A PREPARE_B A... -- B...  prints the medians of each,
# "wall_a cpu_a best_a wall_b cpu_b best_b". Each runs once untimed first, so both find
# their source in the page cache.
duel() {
  local runs=$1 prepare_a=$2 prepare_b=$3 a=() b=() times_a=() times_b=() i
  shift 3
  while [ "$1" != "--" ]; do a+=("$1"); shift; done
  shift
  b=("$@")
  $prepare_a
  "${a[@]}" >/dev/null 2>&1 || true
  $prepare_b
  "${b[@]}" >/dev/null 2>&1 || true
  for ((i = 0; i < runs; i++)); do
    $prepare_a
    times_a+=("$(seconds "${a[@]}")")
    $prepare_b
    times_b+=("$(seconds "${b[@]}")")
  done
  echo "$(medians "${times_a[@]}") $(medians "${times_b[@]}")"
}

nothing() { :; }
# A run's last act may be a forked child storing what it parsed into the
# cache; removing the folder under it fails until it is done.
clear_cache() { until rm -rf "$XDG_CACHE_HOME" 2>/dev/null; do sleep 0.05; done; }
# The targets of earlier strips gone, and whatever they left to write back
# on the disk before the next strip starts its clock.
clear_targets() { rm -rf "$work/out-folder" "$work/out-image"; sync; }

selection=(--product r13 --factory swdl)

row() { printf '%-5s %6s %-26s %9s %9s %9s %7s %7s %7s\n' "$@"; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN {printf "%.2f", a / b}'; }
sum() { awk -v a="$1" -v b="$2" 'BEGIN {printf "%.3f", a + b}'; }

# The query, validate and strip from the image $1 (format $2), each beside
# the same from the folder.
measure() {
  local image=$1 format=$2 listing=$3 fw fc fb iw ic ib v_cold s_cold ignored
  # The first query of either source, with nothing in the cache (not even
  # the parsed build manifest).
  read -r fw fc fb iw ic ib < <(duel 5 clear_cache clear_cache \
    "$velmarbs" --validproducts --source "$bundle" -- \
    "$velmarbs" --validproducts --source "$image")
  row "" "" "$format: first query" "$fw" "$iw" "" "$(ratio "$iw" "$fw")" "$(ratio "$ic" "$fc")" "$(ratio "$ib" "$fb")"
  row "" "" "  (2 x folder + listing)" "" "$(awk -v f="$fw" -v l="$listing" 'BEGIN {printf "%.3f", 2 * f + l}')" "" "" "" ""
  read -r fw fc fb iw ic ib < <(duel 7 nothing nothing \
    "$velmarbs" --validproducts --source "$bundle" -- \
    "$velmarbs" --validproducts --source "$image")
  row "" "" "$format: later queries" "$fw" "$iw" "" "$(ratio "$iw" "$fw")" "$(ratio "$ic" "$fc")" "$(ratio "$ib" "$fb")"
  read -r fw fc fb iw ic ib < <(duel 7 nothing nothing \
    "$velmarbs" --source "$bundle" "${selection[@]}" -- \
    "$velmarbs" --source "$image" "${selection[@]}")
  clear_cache
  read -r v_cold ignored < <(typical 5 clear_cache "$velmarbs" --source "$image" "${selection[@]}")
  row "" "" "$format: validate r13 swdl" "$fw" "$iw" "$v_cold" "$(ratio "$iw" "$fw")" "$(ratio "$ic" "$fc")" "$(ratio "$ib" "$fb")"
  read -r s_cold ignored < <(typical 3 "eval clear_targets; clear_cache" \
    "$velmarbs" --source "$image" --target "$work/out-image" "${selection[@]}")
  "$velmarbs" --validproducts --source "$image" >/dev/null 2>&1
  read -r fw fc fb iw ic ib < <(duel 15 clear_targets clear_targets \
    "$velmarbs" --source "$bundle" --target "$work/out-folder" "${selection[@]}" -- \
    "$velmarbs" --source "$image" --target "$work/out-image" "${selection[@]}")
  row "" "" "$format: strip r13 swdl" "$fw" "$iw" "$s_cold" "$(ratio "$iw" "$fw")" "$(ratio "$ic" "$fc")" "$(ratio "$ib" "$fb")"
  clear_cache
}

mke2fs=$(command -v mke2fs || command -v /usr/sbin/mke2fs || true)
row size files step folder image cold ratio "cpu" best
for gb in "${sizes[@]}"; do
  bundle=$work/content-$gb/Bundle
  image=$work/Bundle-$gb.dmg
  mkdir -p "$work/content-$gb"
  "$mkbundle" "$bundle" --large 55 >/dev/null
  # A quarter of the bytes in the system image a strip for r13 keeps, the
  # rest spread over the other system images. Those are sparse, so cheap to
  # make; the kept one is written out, or the folder's strip would copy
  # nothing but holes.
  total=$((gb * 1024 * 1024 * 1024))
  kept=$bundle/Restore/038-1300-002.dmg
  others=("$bundle"/Restore/038-*.dmg)
  dd if=/dev/zero of="$kept" bs=1M count=$((gb * 256)) status=none
  each=$((total * 3 / 4 / (${#others[@]} - 1)))
  for f in "${others[@]}"; do [ "$f" = "$kept" ] || truncate -s "$each" "$f"; done
  files=$(find "$bundle" | wc -l)
  "$xorriso" -as mkisofs -R -J -joliet-long -iso-level 3 -o "$image" "$work/content-$gb" >/dev/null 2>&1
  sync

  read -r listing_iso ignored < <(typical 3 nothing "$xorriso" -indev "$image" -find / -exec lsdl -- \
    -find / -type f -exec report_lba --)
  read -r listing_7z ignored < <(typical 3 nothing "$sevenzip" l -slt "$image")
  row "${gb}GB" "$files" "listing iso (xorriso+7z)" "" "" "$(sum "$listing_iso" "$listing_7z")" "" ""
  measure "$image" iso "$(sum "$listing_iso" "$listing_7z")"
  if [ -n "$mke2fs" ]; then
    ext4=$work/Bundle-$gb-ext4.dmg
    "$mke2fs" -q -F -t ext4 -d "$work/content-$gb" "$ext4" $((gb * 1024 + gb * 256 + 64))M >/dev/null 2>&1
    sync
    read -r listing_7z ignored < <(typical 3 nothing "$sevenzip" l -slt "$ext4")
    row "" "" "listing ext4 (7z)" "" "" "$listing_7z" "" ""
    measure "$ext4" ext4 "$listing_7z"
    rm -f "$ext4"
  fi
  rm -rf "$work/content-$gb" "$image" "$work/out-folder" "$work/out-image"
  clear_cache
done
echo "(seconds, medians of wall-clock time; image = warm cache, cold = empty cache;"
echo " ratio = image / folder; cpu = the same ratio of processor time, children included;"
echo " best = the same ratio of the shortest wall-clock times)"
