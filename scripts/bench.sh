#!/usr/bin/env bash
# The benchmark command: builds the benchmarks (Release), starts a private
# D-Bus daemon and the minimal service, runs every benchmark in one run,
# then swaps the minimal service for the simulated one and measures it, and
# writes docs/performance.md. Everything it starts is stopped on the way
# out, also on failure or Ctrl-C.
#
#   scripts/bench.sh           full run (about 5 to 10 minutes on 2 cores), writes docs/performance.md
#   scripts/bench.sh --smoke   each benchmark once, only to show that it works; judges no time, writes nothing
#
# BENCH_BUILD_DIR chooses the build directory (default build/bench).
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$(pwd)
source "$ROOT/scripts/private-bus.sh"
SCRIPT_NAME=bench
stop_everything_on_exit

SMOKE=no
case "${1:-}" in
  --smoke) SMOKE=yes ;;
  "") ;;
  *) echo "usage: $0 [--smoke]" >&2; exit 2 ;;
esac
BUILD="${BENCH_BUILD_DIR:-$ROOT/build/bench}"

# ---- Build ----

"$ROOT/scripts/install-deps.sh"
echo "== Building the benchmarks (Release) into $BUILD =="
# A smoke run is CI's: warnings are errors there.
WERROR=OFF
if [ "$SMOKE" = yes ]; then WERROR=ON; fi
cmake -S "$ROOT" -B "$BUILD" -DCMAKE_BUILD_TYPE=Release -DVERANTI_BUILD_BENCHMARKS=ON -DVERANTI_BUILD_TESTS=OFF \
  -DVERANTI_BUILD_TOOLS=ON -DVERANTI_WERROR="$WERROR" >/dev/null
cmake --build "$BUILD" -j"$(nproc)" >/dev/null
BENCH="$BUILD/bench"
SIM="$BUILD/tools/terms-service-sim/terms-service-sim"
[ -x "$SIM" ] || SIM=""

make_work_dir
RESULTS="$WORK/results"
mkdir -p "$RESULTS"
export VCONF_ROOT="$WORK/store"
export DLOG_OUTPUT=none

# ---- The private bus ----

start_private_bus "$WORK" || fail "dbus-daemon did not start (is the dbus package installed?)"

# Waits until the terms-client bus name has an owner (pid of the owner to watch).
wait_for_service() {
  local pid=$1
  for _ in $(seq 100); do
    if dbus-send --bus="$DBUS_SYSTEM_BUS_ADDRESS" --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
      org.freedesktop.DBus.NameHasOwner string:com.velmora.tv.termsclient 2>/dev/null | grep -q 'boolean true'; then
      return 0
    fi
    kill -0 "$pid" 2>/dev/null || return 1
    sleep 0.1
  done
  return 1
}

# ---- Running the benchmark programs ----

if [ "$SMOKE" = yes ]; then
  # Every benchmark once (--smoke), with its output on the terminal.
  run_bench() {
    local program=$1 output=$2
    shift 2
    echo "== $program $* =="
    "$BENCH/$program" --smoke --benchmark_out="$RESULTS/$output.json" --benchmark_out_format=json "$@"
  }
  REPEATED=()
else
  # Repetitions are interleaved at random, so baseline and library see the
  # same machine; each figure is the median of its repetitions.
  run_bench() {
    local program=$1 output=$2
    shift 2
    echo "== $program $* =="
    "$BENCH/$program" --benchmark_out="$RESULTS/$output.json" --benchmark_out_format=json "$@"
  }
  REPEATED=(--benchmark_repetitions=7 --benchmark_enable_random_interleaving=true
            --benchmark_report_aggregates_only=true --benchmark_min_time=0.2)
fi

echo "== Minimal service =="
"$BENCH/bench-service" >"$WORK/service.out" 2>&1 &
SERVICE_PID=$!
remember_process "$SERVICE_PID"
wait_for_service "$SERVICE_PID" || fail "the minimal service did not start: $(cat "$WORK/service.out")"

# Other work on the machine slows every figure down unevenly: a full run
# first waits (up to two minutes) for the load to fall below half the processors.
wait_for_quiet_machine() {
  for _ in $(seq 24); do
    awk -v limit="$(nproc)" '{ exit !($1 < limit / 2) }' /proc/loadavg && return 0
    sleep 5
  done
  echo "bench: the machine stays busy (load $(cut -d' ' -f1 /proc/loadavg)); the figures will be noisy" >&2
}
if [ "$SMOKE" = no ]; then wait_for_quiet_machine; fi

START_DATE=$(date -u '+%Y-%m-%d %H:%M UTC')
LOAD_BEFORE=$(cut -d' ' -f1-3 /proc/loadavg)

run_bench bench-client client "${REPEATED[@]}" --benchmark_filter='-BM_Memory'
run_bench bench-client memory --benchmark_filter='BM_Memory'
run_bench bench-store store "${REPEATED[@]}"
run_bench bench-toolkit toolkit "${REPEATED[@]}"
# One call with a 4,000,000-byte payload, toolkit and bare GDBus, each in a
# fresh server and client (3 repetitions): with GLib's slice allocator and
# glibc's arenas as the system has them, then as the simulator's unit runs it:
# G_SLICE=always-malloc (how GLib 2.76 and later always allocate) and one
# malloc arena (GDBus parses on a thread of its own, and malloc_trim gives
# back the top of the main arena only).
run_bench bench-payload-memory payload-memory
G_SLICE=always-malloc GLIBC_TUNABLES=glibc.malloc.arena_max=1 run_bench bench-payload-memory payload-memory-malloc
# Log lines written to a file: the logging benchmark itself, then the
# library's requests and store queries with their own lines written.
DLOG_OUTPUT="file:$WORK/log.txt" DLOG_MIN_PRIO=I run_bench bench-log log "${REPEATED[@]}"
DLOG_OUTPUT="file:$WORK/client.log" run_bench bench-client client-logfile "${REPEATED[@]}" \
  --benchmark_filter='^BM_(Bare_SdBusCall|Lib_IsServiceAvailable|Bare_SdBusTwoCalls|Lib_SetCountryCode)(/|$)|^BM_Lib_GetDisclaimerDetails/10(/|$)'
DLOG_OUTPUT="file:$WORK/store.log" run_bench bench-store store-logfile "${REPEATED[@]}"
rm -f "$WORK"/*.log "$WORK/log.txt"

stop_remembered_process "$SERVICE_PID"

if [ -n "$SIM" ]; then
  echo "== Simulated service =="
  "$SIM" --catalogue "$ROOT/data/catalogue.json" --store-root "$WORK/sim-store" >"$WORK/sim.out" 2>&1 &
  SIM_PID=$!
  remember_process "$SIM_PID"
  wait_for_service "$SIM_PID" || fail "the simulated service did not start: $(cat "$WORK/sim.out")"
  run_bench bench-client sim "${REPEATED[@]}" --benchmark_filter='BM_Lib_GetDisclaimerDetail_Threads'
  # The consent library on the sample catalogue; it watches the simulator's store.
  VCONF_ROOT="$WORK/sim-store" run_bench bench-consent consent "${REPEATED[@]}"
  stop_remembered_process "$SIM_PID"
else
  echo "bench: terms-service-sim was not built; its row is left out" >&2
fi

if [ "$SMOKE" = yes ]; then
  echo "bench: smoke run passed (every benchmark ran once; no time is judged)"
  exit 0
fi

# The raw results stay in the build directory for a closer look.
rm -rf "$BUILD/bench-results"
cp -r "$RESULTS" "$BUILD/bench-results"
python3 "$ROOT/bench/report.py" --results "$RESULTS" --date "$START_DATE" --load "$LOAD_BEFORE" \
  --output "$ROOT/docs/performance.md"
echo "bench: wrote docs/performance.md"
