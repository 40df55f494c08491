#!/usr/bin/env bash
# The test command: installs what is missing, builds with warnings as errors,
# runs the whole suite, builds consumers against an installed copy, runs the
# suite again with AddressSanitizer (LeakSanitizer included) and
# UndefinedBehaviorSanitizer, then the bounded reliability checks: fuzzers,
# the ThreadSanitizer build and the soak run; last, every benchmark once.
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

echo "== Build and test =="
run_suite build/ci -DCMAKE_BUILD_TYPE=RelWithDebInfo

echo "== Install and build consumers against the installed library =="
tests/consumer/check.sh build/ci

echo "== Build and test with AddressSanitizer + UndefinedBehaviorSanitizer =="
run_suite build/ci-asan -DCMAKE_BUILD_TYPE=Debug -DVERANTI_ASAN=ON -DVERANTI_UBSAN=ON

echo "== Reliability: fuzzers, ThreadSanitizer, soak =="
./scripts/reliability.sh fuzz tsan soak

echo "== Benchmarks: built, and each run once (no time is judged) =="
./scripts/bench.sh --smoke
