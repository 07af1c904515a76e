#!/usr/bin/env bash
# Installs the build tree into a temporary prefix, then configures, builds and
# runs a separate host project against it with find_package, and checks the
# pkg-config file.
set -euo pipefail
build_dir=$1
source_dir=$(cd "$(dirname "$0")" && pwd)
prefix=$(mktemp -d)
work=$(mktemp -d)
trap 'rm -rf "$prefix" "$work"' EXIT
cmake --install "$build_dir" --prefix "$prefix" >/dev/null
test -f "$prefix/include/smartcrop/SmartCrop.h"
test -x "$prefix/bin/smartcrop"
ls "$prefix"/lib*/libsmartcrop.so.0.1.0 >/dev/null
cmake -S "$source_dir/consumer" -B "$work" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work" >/dev/null
"$work/consumer"
"$work/host_consumer" "$source_dir/../data/rocket.jpg"
# Every installed host header stands alone; the layer's own are not installed.
for header in "$prefix"/include/smartcrop/host/*.h; do
  echo "#include \"host/$(basename "$header")\"" |
    c++ -std=c++17 -fsyntax-only -I"$prefix/include/smartcrop" -x c++ - ||
    { echo "installed $header does not compile alone"; exit 1; }
done
for internal in codecs.h exif_orientation.h tiff_directory.h; do
  test ! -e "$prefix/include/smartcrop/host/$internal" || { echo "internal $internal installed"; exit 1; }
done
# The installed program finds its installed library.
"$prefix/bin/smartcrop" --help | grep -q "^usage: smartcrop" ||
  { echo "installed smartcrop --help did not print its usage"; exit 1; }
[ "$("$prefix/bin/smartcrop" --version)" = "smartcrop 0.1.0" ] || { echo "installed smartcrop --version"; exit 1; }
PKG_CONFIG_PATH=$(echo "$prefix"/lib*/pkgconfig) pkg-config --cflags --libs smartcrop | grep -q -- "-lsmartcrop"
# The installed program finds the installed face detector from any folder.
test -f "$prefix/share/smartcrop/ovex3"
faces=$(cd "$work" && "$prefix/bin/smartcrop" --faces --format json "$source_dir/../data/grace_hopper.jpg")
echo "$faces" | grep -q '"faces": \[{' || { echo "installed smartcrop found no face: $faces"; exit 1; }
echo "install test passed"
