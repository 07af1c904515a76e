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
passed=0
failed=0

# The repository's format is part of the build: a file that differs fails.
echo "== format"
# (Judged by what it prints: under pipefail a pipeline's status would be
# clang-format's, which let the failure pass unseen.)
unformatted=$(git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror 2>&1 || true)
if [ -z "$unformatted" ]; then
  passed=$((passed + 1))
else
  echo "$unformatted" | head -n 20
  echo "tests: $passed passed, 1 failed (clang-format: run clang-format -i on the files above)"
  exit 1
fi
run_build() {
  local name=$1; shift
  echo "== $name build"
  cmake -S . -B "build/$name" -G Ninja -DSMARTCROP_WERROR=ON "$@" >/dev/null
  cmake --build "build/$name" -j "$jobs"
  local log status=0
  log=$(mktemp)
  (cd "build/$name" && ctest --output-on-failure -j "$jobs" --timeout 600) 2>&1 | tee "$log" || status=$?
  # "N% tests passed, F tests failed out of T"
  local counts
  counts=$(sed -n 's/.*tests passed, \([0-9]*\) tests failed out of \([0-9]*\).*/\1 \2/p' "$log" | tail -n 1)
  rm -f "$log"
  if [ -n "$counts" ]; then
    set -- $counts
    failed=$((failed + $1))
    passed=$((passed + $2 - $1))
  fi
  [ "$status" -eq 0 ] || { echo "tests: $passed passed, $failed failed"; exit "$status"; }
}

which=${1:-all}
if [ "$which" = all ] || [ "$which" = release ]; then
  run_build release -DCMAKE_BUILD_TYPE=Release
  # The package as a user installs it: pip, no download, into a fresh
  # environment that sees Debian's numpy, PIL and dask.
  echo "== python package install"
  venv=$(mktemp -d)
  /usr/bin/python3 -m venv --system-site-packages --without-pip "$venv"
  if "$venv/bin/python" -m pip install -q --no-build-isolation . &&
     (cd "$venv" && "$venv/bin/python" -c "
import numpy, smartcrop
(best,) = smartcrop.suggest(numpy.full((90, 160, 3), 128, numpy.uint8), '1', count=1)
assert (best.width, best.height) == (90, 90), best
print('installed', smartcrop.__file__)"); then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    echo "tests: $passed passed, $failed failed (the Python package did not install)"
    exit 1
  fi
  rm -rf "$venv"
fi
if [ "$which" = all ] || [ "$which" = sanitize ]; then
  # The Python package is tested in the release build: under the sanitizers
  # the interpreter would need their runtime preloaded.
  run_build sanitize -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSMARTCROP_SANITIZE=ON -DSMARTCROP_BUILD_BENCH=OFF \
    -DSMARTCROP_BUILD_PYTHON=OFF
fi
if { [ "$which" = all ] || [ "$which" = fuzz ]; } && command -v clang++ >/dev/null; then
  echo "== fuzz build"
  CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DSMARTCROP_FUZZ=ON -DSMARTCROP_BUILD_BENCH=OFF -DSMARTCROP_BUILD_PYTHON=OFF >/dev/null
  seconds=${SMARTCROP_FUZZ_SECONDS:-60}
  for source in tests/fuzz/fuzz_*.cpp; do
    name=$(basename "$source" .cpp)
    [ "$name" = fuzz_replay_main ] && continue
    cmake --build build/fuzz -j "$jobs" --target "$name"
    corpus=$(mktemp -d)
    # The decoders start from real photographs.
    [ "$name" = fuzz_image_decoding ] && cp tests/data/*.jpg "$corpus"/
    [ "$name" = fuzz_detector_config ] && cp data/ovex3 "$corpus"/
    echo "-- $name for ${seconds}s"
    status=0
    ASAN_OPTIONS=allocator_may_return_null=1 "build/fuzz/tests/$name" \
      -max_total_time="$seconds" -rss_limit_mb=4096 -timeout=60 -print_final_stats=1 "$corpus" \
      >"$corpus.log" 2>&1 || status=$?
    grep -aE '^(Done|stat::number_of_executed_units|==[0-9]+==ERROR|SUMMARY)' "$corpus.log" || true
    if [ "$status" -ne 0 ]; then
      tail -n 40 "$corpus.log"
      echo "fuzz target $name failed"
      exit 1
    fi
    rm -rf "$corpus" "$corpus.log"
    passed=$((passed + 1))
  done
fi
echo "tests: $passed passed, $failed failed"
