#!/usr/bin/env bash
# Line coverage of src/, consent/, platform/ and tools/ by the suite: builds with gcc
# and --coverage into build/coverage, runs the whole suite, and reports with
# gcovr; fails when the line coverage is under the minimum (default 90 %).
# scripts/test.sh runs it.
#
#   scripts/coverage.sh [minimum-percent]
#
# The report per file is build/coverage/coverage.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
minimum=${1:-90}
dir=build/coverage
jobs=$(nproc)

# The counters are updated atomically: the log, the store and the toolkit run
# on several threads at once, and racing updates make gcov report negative
# branch counts, which gcovr refuses.
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  "-DCMAKE_C_FLAGS=--coverage -fprofile-update=atomic" "-DCMAKE_CXX_FLAGS=--coverage -fprofile-update=atomic" \
  -DVERANTI_WERROR=ON >/dev/null
# Counts of an earlier run would add to this one's (and the build runs the test
# programs once, to list their tests).
find "$dir" -name '*.gcda' -delete
cmake --build "$dir" -j"$jobs" >"$dir/build.log" 2>&1 || {
  tail -n 40 "$dir/build.log" >&2
  echo "coverage: the coverage build failed (log: $dir/build.log)" >&2
  exit 1
}
find "$dir" -name '*.gcda' -delete
ctest --test-dir "$dir" --output-on-failure -j"$jobs" >"$dir/ctest.log" 2>&1 || {
  tail -n 40 "$dir/ctest.log" >&2
  echo "coverage: the suite failed in the coverage build (log: $dir/ctest.log)" >&2
  exit 1
}

# (CMake's compiler checks leave coverage notes of their own; they are not the project's.)
gcovr --root . --object-directory "$dir" --exclude-directories '.*/CMakeFiles/[0-9.]+' \
  --filter 'src/' --filter 'consent/' --filter 'platform/' --filter 'tools/' \
  --output "$dir/coverage.txt" --print-summary --fail-under-line "$minimum"
