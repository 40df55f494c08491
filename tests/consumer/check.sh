#!/usr/bin/env bash
# Installs a build into a temporary prefix and builds two small consumers
# against it: a C program with pkg-config and a C++ program with CMake.
# Usage: tests/consumer/check.sh <build-dir>
set -euo pipefail
build=$(realpath "$1")
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name 'libcapi-veranti-service.so.0' | head -n 1)")
export PKG_CONFIG_PATH=$libdir/pkgconfig
export LD_LIBRARY_PATH=$libdir

readelf -d "$libdir/libcapi-veranti-service.so.0" | grep -q 'SONAME.*\[libcapi-veranti-service.so.0\]'
cc -std=c99 -Wall -Wextra -Werror "$here/consumer.c" -o "$work/consumer-c" \
  $(pkg-config --cflags --libs capi-veranti-service)
"$work/consumer-c"

cmake -S "$here" -B "$work/cxx" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cxx" >/dev/null
"$work/cxx/consumer"
