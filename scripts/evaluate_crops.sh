#!/usr/bin/env bash
# The host layer against the library's own ranking, side by side: faces
# whole, subjects kept on generated scenes and on photographs whose subjects
# we labelled by eye (data/labelled-subjects.tsv), diverse suggestions. Photographs
# from Debian packages (data/evaluation-photos.tsv, fetched outside the
# repository), and the model's training photographs for the suggestions'
# overlap; reference faces from OpenCV's Haar cascade (opencv-data).
# Usage: scripts/evaluate_crops.sh [OUTDIR]
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-$HOME/.cache/smartcrop/evaluation-photos}
bash scripts/bootstrap.sh
need=""
for p in libopencv-objdetect-dev opencv-data; do
  dpkg -s "$p" >/dev/null 2>&1 || need="$need $p"
done
if [ -n "$need" ]; then
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get install -y -q $need >/dev/null
fi
bash scripts/fetch_training_photos.sh data/evaluation-photos.tsv "$out"
training=$HOME/.cache/smartcrop/training-photos
bash scripts/fetch_training_photos.sh ../shared/training-photos.tsv "$training"
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release --target crop_evaluation
./build/release/tools/crop_evaluation build/release/share/smartcrop/ovex3 \
  /usr/share/opencv4/haarcascades/haarcascade_frontalface_default.xml \
  --subjects data/labelled-subjects.tsv "$out"/photos/* -- "$training"/photos/*
