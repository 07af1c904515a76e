#!/usr/bin/env bash
# The main job on a fresh machine: install what is missing, build, and run
# smartcrop on a real photograph, printing the ranked suggestions and writing
# the preview. The photograph is "Kleiber" by Lukas Baubkus (CC-BY-SA-3.0),
# from Debian's lomiri-wallpapers-20.04; pass another image to use that.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release --target smartcrop smartcrop-cli

photo=${1:-}
if [ -z "$photo" ]; then
  cache=$HOME/.cache/smartcrop/main-job
  photo=$cache/Kleiber_by_Lukas_Baubkus.jpg
  if [ ! -f "$photo" ]; then
    mkdir -p "$cache"
    tmp=$(mktemp -d)
    (cd "$tmp" && apt-get download -q lomiri-wallpapers-20.04 >/dev/null 2>&1)
    dpkg-deb --fsys-tarfile "$tmp"/lomiri-wallpapers-20.04_*.deb |
      tar -x -C "$tmp" ./usr/share/backgrounds/Kleiber_by_Lukas_Baubkus.jpg
    mv "$tmp/usr/share/backgrounds/Kleiber_by_Lukas_Baubkus.jpg" "$photo"
    rm -rf "$tmp"
  fi
fi
mkdir -p out
./build/release/tools/smartcrop --format table --overwrite --preview out/preview.jpg "$photo"
echo "preview: out/preview.jpg"
