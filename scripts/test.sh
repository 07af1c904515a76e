#!/usr/bin/env bash
# Builds and runs every test: an optimised build, then the same suite under
# AddressSanitizer and UndefinedBehaviorSanitizer.
# Usage: scripts/test.sh [release|sanitize]   (both when no argument is given)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh

jobs=$(nproc)
run_build() {
  local name=$1; shift
  echo "== $name build"
  cmake -S . -B "build/$name" -G Ninja -DSMARTCROP_WERROR=ON "$@" >/dev/null
  cmake --build "build/$name" -j "$jobs"
  (cd "build/$name" && ctest --output-on-failure -j "$jobs" --timeout 600)
}

which=${1:-all}
if [ "$which" = all ] || [ "$which" = release ]; then
  run_build release -DCMAKE_BUILD_TYPE=Release
fi
if [ "$which" = all ] || [ "$which" = sanitize ]; then
  run_build sanitize -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSMARTCROP_SANITIZE=ON -DSMARTCROP_BUILD_BENCH=OFF
fi
