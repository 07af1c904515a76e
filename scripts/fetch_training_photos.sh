#!/usr/bin/env bash
# Fetches the training photographs listed in a TSV (package, path inside the
# package, width, height, notes, licence) from Debian's packages into a
# folder outside the repository. No photograph is committed.
# Usage: scripts/fetch_training_photos.sh [LIST.tsv] [OUTDIR]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
list=${1:-$here/../shared/training-photos.tsv}
out=${2:-$HOME/.cache/smartcrop/training-photos}
mkdir -p "$out/debs" "$out/photos"

packages=$(tail -n +2 "$list" | cut -f1 | sort -u)
for p in $packages; do
  if ! ls "$out/debs/${p}_"*.deb >/dev/null 2>&1; then
    # apt warns when its sandbox user cannot write the folder; harmless here.
    (cd "$out/debs" && apt-get download -q "$p" >/dev/null 2>&1) || { echo "cannot download $p" >&2; exit 1; }
  fi
done

# Each photograph is named after its package and its path, so that names
# from different packages cannot collide.
tail -n +2 "$list" | while IFS=$'\t' read -r package path width height notes licence; do
  name="${package}__$(echo "$path" | tr '/' '_')"
  [ -f "$out/photos/$name" ] && continue
  deb=$(ls "$out/debs/${package}_"*.deb | head -n 1)
  tmp=$(mktemp -d)
  dpkg-deb --fsys-tarfile "$deb" | tar -x -C "$tmp" "./$path" 2>/dev/null || dpkg-deb --fsys-tarfile "$deb" | tar -x -C "$tmp" "$path"
  mv "$tmp/$path" "$out/photos/$name"
  rm -rf "$tmp"
done
ls "$out/photos" | wc -l | xargs echo "photos in $out/photos:"
