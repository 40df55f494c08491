#!/usr/bin/env bash
# Builds and runs the two small consumers against an installed tree: a C program with pkg-config and a C++
# program with the CMake package; checks the library's SONAME first.
# Usage: tests/consumer/run.sh <prefix> <work-dir>
set -euo pipefail
prefix=$1
work=$2
here=$(cd "$(dirname "$0")" && pwd)

libdir=$(dirname "$(find "$prefix" -name 'libcapi-veranti-service.so.0' | head -n 1)")
export PKG_CONFIG_PATH=$libdir/pkgconfig
export LD_LIBRARY_PATH=$libdir${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}

readelf -d "$libdir/libcapi-veranti-service.so.0" | grep -q 'SONAME.*\[libcapi-veranti-service.so.0\]'
cc -std=c99 -Wall -Wextra -Werror "$here/consumer.c" -o "$work/consumer-c" \
  $(pkg-config --cflags --libs capi-veranti-service)
"$work/consumer-c"

cmake -S "$here" -B "$work/cxx" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cxx" >/dev/null
"$work/cxx/consumer"
