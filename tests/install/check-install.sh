#!/usr/bin/env bash
# Installs the built library into a scratch prefix, then builds and runs a small
# consumer program against it, once through the CMake package and once through
# pkg-config.
set -euo pipefail
build_dir=$1 source_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
test -f "$work/prefix/include/qorimg/qorimg.h"
libdir=$(dirname "$(find "$work/prefix" -name 'libqorimg.so' | head -n1)")

cmake -S "$source_dir/tests/install/consumer" -B "$work/cmake-build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
LD_LIBRARY_PATH="$libdir" "$work/cmake-build/consumer"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
g++ -std=c++20 "$source_dir/tests/install/consumer/main.cpp" -o "$work/pkg-consumer" $(pkg-config --define-prefix --cflags --libs qorimg)
LD_LIBRARY_PATH="$libdir" "$work/pkg-consumer"
