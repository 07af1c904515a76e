#!/usr/bin/env bash
# The main job: build the library and run the example host on a generated image.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j "$(nproc)"
./build/release/tools/example_host
