#!/usr/bin/env bash
# The test command: installs what is missing, checks formatting and
# clang-tidy (scripts/lint.sh), builds with warnings as errors and runs the
# whole suite with gcc, builds consumers against an installed copy, builds and
# runs the suite with clang, again with AddressSanitizer (LeakSanitizer
# included) and UndefinedBehaviorSanitizer, then measures line coverage
# (scripts/coverage.sh, at least 90 %), then the bounded reliability checks:
# fuzzers, the ThreadSanitizer build and the soak run; last, every benchmark
# once.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh

jobs=$(nproc)
run_suite() {
  local dir=$1; shift
  cmake -S . -B "$dir" -DVERANTI_WERROR=ON "$@"
  cmake --build "$dir" -j"$jobs"
  ctest --test-dir "$dir" --output-on-failure -j"$jobs"
}

echo "== Formatting and clang-tidy =="
./scripts/lint.sh

echo "== Build and test (gcc) =="
run_suite build/ci -DCMAKE_BUILD_TYPE=RelWithDebInfo

echo "== Install and build consumers against the installed library =="
tests/consumer/check.sh build/ci

echo "== Build and test (clang) =="
run_suite build/ci-clang -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++

echo "== Debian packages: build with cpack, unpack into a fresh root, run the consumers and tools =="
tests/packaging/check.sh build/ci

echo "== Build and test with AddressSanitizer + UndefinedBehaviorSanitizer =="
run_suite build/ci-asan -DCMAKE_BUILD_TYPE=Debug -DVERANTI_ASAN=ON -DVERANTI_UBSAN=ON

echo "== Line coverage of src/, consent/, platform/ and tools/ =="
./scripts/coverage.sh 90

echo "== Reliability: fuzzers, ThreadSanitizer, soak =="
./scripts/reliability.sh fuzz tsan soak

echo "== Benchmarks: built, and each run once (no time is judged) =="
./scripts/bench.sh --smoke
