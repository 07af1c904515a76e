#!/usr/bin/env bash
# Installs the Debian packages that building and testing smartcrop needs.
# Idempotent and quiet: apt is touched only when something is missing.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config file python3
  libopencv-core-dev libopencv-imgproc-dev libopencv-imgcodecs-dev
  # The host layer's decoders and encoders.
  libturbojpeg0-dev libspng-dev libwebp-dev
  # The serial OpenBLAS build: the library must not start threads in a host.
  libopenblas-serial-dev libopenblas0-serial liblapacke-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  # clang only for the libFuzzer targets; they are skipped without it.
  clang libclang-rt-14-dev
  # The Python package: its build, its dependencies and its tests.
  pybind11-dev python3-dev python3-numpy python3-pil python3-dask python3-distributed
  python3-pytest python3-pip python3-setuptools python3-wheel python3-venv python3-mypy
  # The format check of the test script.
  clang-format git
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "bootstrap: installing ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
