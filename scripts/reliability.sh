#!/usr/bin/env bash
# The reliability checks beyond the suite, bounded to a few minutes on two
# cores; scripts/test.sh runs them after the suite (whose AddressSanitizer
# build is the leak check: LeakSanitizer fails any test that leaks):
#   fuzz  the fuzz targets, each for FUZZ_SECONDS (default 20) from its corpus;
#   tsan  the concurrency tests built with ThreadSanitizer (tests/tsan.supp);
#   soak  100,000 requests from one client process (about 30 s), with resident
#         memory and open descriptors compared at 1,000 and at the end.
# Only the targets each step needs are built, in build/fuzz, build/tsan and
# build/ci.
#
#   scripts/reliability.sh [fuzz] [tsan] [soak]     (default: all three)
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh

jobs=$(nproc)
start=$SECONDS
step() { echo; echo "== $1 ($((SECONDS - start)) s)"; }

steps=" ${*:-fuzz tsan soak} "
wanted() { [[ $steps == *" $1 "* ]]; }

if wanted fuzz; then
step "Fuzzers, ${FUZZ_SECONDS:-20} s each"
scripts/fuzz.sh "${FUZZ_SECONDS:-20}"
fi

if wanted tsan; then
step "ThreadSanitizer build of the concurrency tests"
cmake -S . -B build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVERANTI_TSAN=ON -DVERANTI_BUILD_TOOLS=OFF \
  -DVERANTI_WERROR=ON >/dev/null
cmake --build build/tsan -j"$jobs" --target concurrency_test >/dev/null
TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp halt_on_error=1 second_deadlock_stack=1" \
  ctest --test-dir build/tsan -L concurrency --output-on-failure -j"$jobs"
fi

if wanted soak; then
step "Soak: 100,000 requests against the simulated service"
# The plain build of scripts/test.sh, configured the same way, so CI builds it once.
cmake -S . -B build/ci -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVERANTI_WERROR=ON >/dev/null
cmake --build build/ci -j"$jobs" --target soak_test terms-service-sim >/dev/null
VERANTI_SOAK=1 ctest --test-dir build/ci -L soak --output-on-failure
fi

step "Done"
