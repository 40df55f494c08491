#!/usr/bin/env bash
# Builds the fuzz targets (clang, libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer) in build/fuzz and runs each for the given number
# of seconds (default 20), one after the other.
#
#   scripts/fuzz.sh [seconds-per-target] [target...]
#
# Each target starts from its checked-in seeds (fuzz/corpus/<target>) plus what
# earlier runs found (build/fuzz/corpus/<target>). A crash, a sanitizer report,
# an uncaught exception, a hang (10 s per input) or a broken invariant stops
# the target and leaves the input in build/fuzz/findings/<target>/; the script
# then exits non-zero. A summary per target goes to build/fuzz/summary.txt.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-20}
shift || true
all_targets=(disclaimer_reply_fuzzer service_reply_fuzzer agreement_cache_fuzzer menu_titles_fuzzer
             bus_tuple_fuzzer store_key_fuzzer sim_request_fuzzer)
targets=("${@:-${all_targets[@]}}")
dir=build/fuzz

CC=clang CXX=clang++ cmake -S . -B "$dir" -DVERANTI_BUILD_FUZZERS=ON -DVERANTI_BUILD_TESTS=OFF \
  -DVERANTI_BUILD_TOOLS=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j2 --target "${targets[@]}" >/dev/null

summary="$dir/summary.txt"
printf '%-26s %8s %12s %10s %8s %s\n' target seconds executions exec/s cov result >"$summary"
failed=0
for target in "${targets[@]}"; do
  corpus="$dir/corpus/$target"
  findings="$dir/findings/$target"
  mkdir -p "$corpus" "$findings"
  log="$dir/$target.log"
  set +e
  # JSON-shaped inputs get the JSON dictionary; DLOG_OUTPUT is not read: the
  # targets format every log line and drop it.
  dict=()
  case $target in bus_tuple_fuzzer|store_key_fuzzer) ;; *) dict=(-dict=fuzz/json.dict) ;; esac
  "$dir/fuzz/$target" "${dict[@]}" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$findings/" "$corpus" "fuzz/corpus/$target" >"$log" 2>&1
  status=$?
  set -e
  runs=$(sed -n 's/^Done \([0-9]*\) runs in \([0-9]*\) second.*/\1/p' "$log" | tail -1)
  took=$(sed -n 's/^Done \([0-9]*\) runs in \([0-9]*\) second.*/\2/p' "$log" | tail -1)
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
  rate=$(( ${took:-0} > 0 ? ${runs:-0} / took : 0 ))
  result=ok
  if [ $status -ne 0 ]; then result="FINDING (see $log)"; failed=1; fi
  printf '%-26s %8s %12s %10s %8s %s\n' "$target" "${took:-?}" "${runs:-?}" "$rate" "${cov:-?}" "$result" >>"$summary"
done
cat "$summary"
exit $failed
