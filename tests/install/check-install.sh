#!/usr/bin/env bash
# Installs the built library into a scratch prefix, then checks that every
# installed header compiles on its own with -I<prefix>/include alone, and builds
# and runs a small consumer program against the tree three ways: through the
# CMake package, through pkg-config as installed (no --define-prefix, so the
# .pc file must find its own prefix), and with the include root alone.
set -euo pipefail
build_dir=$1 source_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$build_dir" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name 'libqorimg.so' | head -n1)")
consumer=$source_dir/tests/install/consumer/main.cpp

(cd "$prefix/include" && find qorimg -name '*.h') |
  xargs -P 2 -I{} sh -c 'echo "#include <{}>" | g++ -std=c++20 -fsyntax-only -I"$1/include" -x c++ - ||
    { echo "installed header {} does not compile alone" >&2; exit 255; }' sh "$prefix"

cmake -S "$source_dir/tests/install/consumer" -B "$work/cmake-build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
LD_LIBRARY_PATH="$libdir" "$work/cmake-build/consumer"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
pc_includes=$(pkg-config --variable=includedir qorimg)
if [ "$(realpath "$pc_includes")" != "$(realpath "$prefix/include")" ]; then
  echo "qorimg.pc points at $pc_includes, not at the tree it was installed in" >&2
  exit 1
fi
g++ -std=c++20 "$consumer" -o "$work/pkg-consumer" $(pkg-config --cflags --libs qorimg)
LD_LIBRARY_PATH="$libdir" "$work/pkg-consumer"

g++ -std=c++20 "$consumer" -o "$work/plain-consumer" -I"$prefix/include" -L"$libdir" -lqorimg
LD_LIBRARY_PATH="$libdir" "$work/plain-consumer"
