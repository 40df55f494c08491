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
#
# Scratch files (the temporary configuration stores and clone directories of
# the targets) go to build/fuzz/scratch/<script pid>/<target>, which is
# removed after each target whether it ended or aborted, and on any exit of
# this script. It is bounded: a target whose scratch grows past 100,000 files
# or 1 GiB is stopped and reported as a finding.
#
# AddressSanitizer keeps no allocation stacks (malloc_context_size=0) and a
# quarantine of 64 MiB: with stacks kept, deeply nested JSON inputs grew its
# own bookkeeping by about 1 MB an input until a ten-minute run ran out of
# memory. A finding replayed by the ASan build of the suite
# (fuzz_replay_<target>) shows the full stacks. ASAN_OPTIONS given by the
# caller come after these and win.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-20}
shift || true
all_targets=(disclaimer_reply_fuzzer service_reply_fuzzer agreement_cache_fuzzer menu_titles_fuzzer
             bus_tuple_fuzzer store_key_fuzzer sim_request_fuzzer)
targets=("${@:-${all_targets[@]}}")
dir=build/fuzz
scratch_base="$PWD/$dir/scratch/$$"
scratch_max_files=100000
scratch_max_mib=1024

running=""
trap '[ -z "$running" ] || kill "$running" 2>/dev/null; rm -rf "$scratch_base"' EXIT

# Runs the target command given in the arguments with $VERANTI_FUZZ_SCRATCH
# set to the directory $1, checks the directory's size every 5 s and stops the
# target when it outgrows its bound. Sets `status` (the target's exit status)
# and `overflow` (what was exceeded, or empty); removes the directory at the end.
run_bounded() {
  local scratch=$1
  shift
  rm -rf "$scratch"
  mkdir -p "$scratch"
  VERANTI_FUZZ_SCRATCH="$scratch" "$@" &
  running=$!
  overflow=""
  local tick=0
  while kill -0 "$running" 2>/dev/null; do
    sleep 1
    tick=$((tick + 1))
    [ $((tick % 5)) -eq 0 ] || continue
    local files mib
    files=$(du -s --inodes "$scratch" 2>/dev/null | cut -f1)
    mib=$(du -s -m "$scratch" 2>/dev/null | cut -f1)
    if [ "${files:-0}" -gt $scratch_max_files ] || [ "${mib:-0}" -gt $scratch_max_mib ]; then
      overflow="scratch space over its bound (${files} files, ${mib} MiB)"
      kill "$running" 2>/dev/null
      break
    fi
  done
  status=0
  wait "$running" || status=$?
  running=""
  rm -rf "$scratch"
}

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
  ASAN_OPTIONS="malloc_context_size=0:quarantine_size_mb=64${ASAN_OPTIONS:+:$ASAN_OPTIONS}" \
    run_bounded "$scratch_base/$target" "$dir/fuzz/$target" "${dict[@]}" -max_total_time="$seconds" -timeout=10 \
    -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$findings/" "$corpus" "fuzz/corpus/$target" \
    >"$log" 2>&1
  set -e
  runs=$(sed -n 's/^Done \([0-9]*\) runs in \([0-9]*\) second.*/\1/p' "$log" | tail -1)
  took=$(sed -n 's/^Done \([0-9]*\) runs in \([0-9]*\) second.*/\2/p' "$log" | tail -1)
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
  rate=$(( ${took:-0} > 0 ? ${runs:-0} / took : 0 ))
  result=ok
  if [ -n "$overflow" ]; then result="FINDING: $overflow"; failed=1
  elif [ $status -ne 0 ]; then result="FINDING (see $log)"; failed=1; fi
  printf '%-26s %8s %12s %10s %8s %s\n' "$target" "${took:-?}" "${runs:-?}" "$rate" "${cov:-?}" "$result" >>"$summary"
done
cat "$summary"
exit $failed
