#!/usr/bin/env bash
# The reliability checks of CI, bounded to a few minutes on two cores:
#   1. the fuzz targets, each for FUZZ_SECONDS (default 20) from its corpus;
#   2. the concurrency tests built with ThreadSanitizer (tests/tsan.supp);
#   3. the leak check: a LeakSanitizer run (AddressSanitizer build) of the
#      client, C interface, reliability and fuzz-replay tests, and the proof
#      that tests/lsan.supp hides exactly the leak the library makes by design.
# RELIABILITY_SOAK=1 adds the soak test (100,000 requests, about 30 s plain;
# here in the AddressSanitizer build, about 2 minutes).
# Only the targets each step needs are built, in build/fuzz, build-rel-tsan and
# build-rel-asan.
#
#   scripts/reliability.sh [fuzz] [tsan] [leaks]     (default: all three)
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh

jobs=$(nproc)
start=$SECONDS
step() { echo; echo "== $1 ($((SECONDS - start)) s)"; }

steps=" ${*:-fuzz tsan leaks} "
wanted() { [[ $steps == *" $1 "* ]]; }

if wanted fuzz; then
step "Fuzzers, ${FUZZ_SECONDS:-20} s each"
scripts/fuzz.sh "${FUZZ_SECONDS:-20}"
fi

if wanted tsan; then
step "ThreadSanitizer build of the concurrency tests"
cmake -S . -B build-rel-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTSAN=ON -DVERANTI_BUILD_TOOLS=OFF \
  -DVERANTI_WERROR=ON >/dev/null
cmake --build build-rel-tsan -j"$jobs" --target concurrency_test >/dev/null
TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp halt_on_error=1 second_deadlock_stack=1" \
  ctest --test-dir build-rel-tsan -L concurrency --output-on-failure -j"$jobs"
fi

if wanted leaks; then
step "Leak check (AddressSanitizer with LeakSanitizer, UndefinedBehaviorSanitizer)"
cmake -S . -B build-rel-asan -DCMAKE_BUILD_TYPE=Debug -DASAN=ON -DUBSAN=ON -DVERANTI_WERROR=ON >/dev/null
leak_targets=(client_tests capi_tests bus_fault_test format_safety_test concurrency_test leaks_by_design_probe
              disclaimer_reply_fuzzer service_reply_fuzzer agreement_cache_fuzzer menu_titles_fuzzer
              bus_tuple_fuzzer store_key_fuzzer sim_request_fuzzer)
if [ "${RELIABILITY_SOAK:-0}" = 1 ]; then leak_targets+=(soak_test); fi
cmake --build build-rel-asan -j"$jobs" --target "${leak_targets[@]}" >/dev/null
# Every test of these programs runs in its own process (as the suite runs
# them); LeakSanitizer fails any that leaks. LSAN_OPTIONS names tests/lsan.supp
# only for the programs that call GetAllDisclaimerDetail.
tests_of() {
  local program
  program=$(find build-rel-asan/tests -name "$1" -type f -perm -u+x | head -1)
  "$program" --gtest_list_tests | awk '/^[^ ]/ {suite = $1} /^  / {print "^" suite $1 "$"}'
}
selection=$( { for program in client_tests capi_tests bus_fault_test format_safety_test concurrency_test \
                                leaks_by_design_probe; do tests_of "$program"; done
              echo "^fuzz_replay_"; echo "^lsan_suppression_is_exact$"; echo "^log_formats_are_literal$"; } | paste -sd'|')
ctest --test-dir build-rel-asan --output-on-failure -j"$jobs" -R "$selection"
if [ "${RELIABILITY_SOAK:-0}" = 1 ]; then
  step "Soak"
  VERANTI_SOAK=1 ctest --test-dir build-rel-asan -L soak --output-on-failure
fi
fi

step "Done"
