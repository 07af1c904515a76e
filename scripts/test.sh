#!/usr/bin/env bash
# Builds and runs every test: an optimised build, then the same suite under
# AddressSanitizer and UndefinedBehaviorSanitizer.
# Then, when clang is there, every fuzz target runs as a libFuzzer binary for
# a bounded time.
# Usage: scripts/test.sh [release|sanitize|fuzz]   (all when no argument is given)
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
if { [ "$which" = all ] || [ "$which" = fuzz ]; } && command -v clang++ >/dev/null; then
  echo "== fuzz build"
  CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DSMARTCROP_FUZZ=ON -DSMARTCROP_BUILD_BENCH=OFF >/dev/null
  seconds=${SMARTCROP_FUZZ_SECONDS:-60}
  for source in tests/fuzz/fuzz_*.cpp; do
    name=$(basename "$source" .cpp)
    [ "$name" = fuzz_replay_main ] && continue
    cmake --build build/fuzz -j "$jobs" --target "$name"
    corpus=$(mktemp -d)
    echo "-- $name for ${seconds}s"
    ASAN_OPTIONS=allocator_may_return_null=1 "build/fuzz/tests/$name" \
      -max_total_time="$seconds" -rss_limit_mb=4096 -timeout=60 -print_final_stats=1 "$corpus" \
      2>&1 | grep -E '^(Done|stat::number_of_executed_units|==[0-9]+==ERROR|SUMMARY)' || true
    status=${PIPESTATUS[0]}
    rm -rf "$corpus"
    [ "$status" -eq 0 ] || { echo "fuzz target $name failed"; exit 1; }
  done
fi
