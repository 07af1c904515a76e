#!/usr/bin/env bash
# Whole-process time per image, one thread: smartcrop (decode, analysis and a
# 16:9 query returning five ranked suggestions) against
# `vipsthumbnail IMAGE -s 640x360 -m attention` with VIPS_CONCURRENCY=1.
# Photographs of 2.5, 12 and 20 MP; each pair of commands runs alternately.
# Usage: bench/compare_vips.sh [RUNS]   (photos from scripts/fetch_training_photos.sh)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-11}
photos=$HOME/.cache/smartcrop/training-photos/photos
bash scripts/fetch_training_photos.sh ../shared/training-photos.tsv "$(dirname "$photos")" >/dev/null
command -v vipsthumbnail >/dev/null && [ -x /usr/bin/time ] || { apt-get update -qq && apt-get install -y -qq libvips-tools time >/dev/null; }
cmake --build build/release --target smartcrop-cli >/dev/null

wall_ms() {  # the wall time of one run of a command line, in ms
  local start end
  start=$(date +%s%N)
  eval "$1" >/dev/null 2>&1
  end=$(date +%s%N)
  echo $(( (end - start) / 1000000 ))
}
median() { printf '%s\n' "$@" | sort -n | sed -n "$(( ($# + 1) / 2 ))p"; }
paired_ms() {  # two command lines run alternately (drift cancels); both medians
  local a=() b=()
  for _ in $(seq "$runs"); do
    a+=("$(wall_ms "$1")")
    b+=("$(wall_ms "$2")")
  done
  echo "$(median "${a[@]}") $(median "${b[@]}")"
}

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
batch=10
printf 'per process: one image per run; batch: %d copies in one process, per image\n' "$batch"
peak_mib() {  # the peak resident memory of one run of a command, in MiB
  /usr/bin/time -f %M "$@" 2>&1 >/dev/null | tail -n 1 | awk '{ printf "%.0f", $1 / 1024 }'
}
printf '%-48s %10s %12s %8s   %10s %12s %8s   %s\n' photo smartcrop vipsthumbnail ratio "batch ours" "batch vips" ratio "peak MiB ours/vips"
for image in "$photos/mate-backgrounds__usr_share_backgrounds_mate_nature_Storm.jpg" \
             "$photos/digikam-data__usr_share_digikam_about_images_body-background.jpg" \
             "$photos/lomiri-wallpapers-20.04__usr_share_backgrounds_Kleiber_by_Lukas_Baubkus.jpg"; do
  name=$(basename "$image")
  ours="./build/release/tools/smartcrop --aspect 16:9 --format json"
  vips="VIPS_CONCURRENCY=1 vipsthumbnail -s 640x360 -m attention"
  read -r ours1 theirs1 < <(paired_ms "$ours $(printf %q "$image")" \
                                     "$vips $(printf %q "$image") -o $out/thumb.jpg")
  copies=()
  for i in $(seq "$batch"); do ln -sf "$image" "$out/copy$i.jpg"; copies+=("$out/copy$i.jpg"); done
  read -r oursBatch theirsBatch < <(paired_ms "$ours ${copies[*]}" "$vips ${copies[*]} -o $out/%s-thumb.jpg")
  peakOurs=$(peak_mib ./build/release/tools/smartcrop --aspect 16:9 --format json "$image")
  peakTheirs=$(VIPS_CONCURRENCY=1 peak_mib vipsthumbnail "$image" -s 640x360 -m attention -o "$out/thumb.jpg")
  size=$(file -b "$image" | grep -oE '[0-9]+x[0-9]+' | tail -1)
  ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
  printf '%-48s %8s ms %10s ms %8s   %8s ms %10s ms %8s   %s/%s\n' "${name##*__} ($size)" "$ours1" "$theirs1" \
    "$(ratio "$ours1" "$theirs1")" "$((oursBatch / batch))" "$((theirsBatch / batch))" "$(ratio "$oursBatch" "$theirsBatch")" \
    "$peakOurs" "$peakTheirs"
done
