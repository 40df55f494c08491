#!/usr/bin/env bash
# The demo: installs what is missing, builds into build/demo, starts a private
# D-Bus daemon and the simulated terms-client service (sample catalogue,
# temporary configuration store), then walks through the main flow with
# terms-cli. Everything it starts is stopped on the way out, also on Ctrl-C
# or failure.
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$(pwd)
source "$ROOT/scripts/private-bus.sh"
SCRIPT_NAME=demo
stop_everything_on_exit
BUILD="$ROOT/build/demo"
CATALOGUE="$ROOT/data/catalogue.json"

if [ -t 1 ]; then BOLD=$'\033[1m'; DIM=$'\033[2m'; RESET=$'\033[0m'; else BOLD=""; DIM=""; RESET=""; fi

heading() { printf '\n%s== %s ==%s\n' "$BOLD" "$*" "$RESET"; }
# Prints a command line, then runs it.
run() {
  printf '%s$ %s%s\n' "$DIM" "$*" "$RESET"
  "$@"
}
heading "Installing what is missing"
"$ROOT/scripts/install-deps.sh"
echo "All packages are installed."

heading "Building (cmake, into build/demo)"
mkdir -p "$BUILD"
BUILD_LOG="$BUILD/demo-build.log"
if ! { cmake -S "$ROOT" -B "$BUILD" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVERANTI_BUILD_TESTS=OFF &&
       cmake --build "$BUILD" -j"$(nproc)" --target terms-cli terms-service-sim vconftool; } >"$BUILD_LOG" 2>&1; then
  tail -n 40 "$BUILD_LOG" >&2
  fail "the build failed; the whole log is in $BUILD_LOG"
fi
echo "Built terms-cli, terms-service-sim and vconftool (log: build/demo/demo-build.log)."
export PATH="$BUILD/tools/terms-cli:$BUILD/tools/terms-service-sim:$BUILD/platform/vconf:$PATH"

make_work_dir
export VCONF_ROOT="$WORK/store"

heading "Starting a private D-Bus daemon"
start_private_bus "$WORK" || fail "dbus-daemon did not start (is the dbus package installed?)"
echo "Bus at $DBUS_SYSTEM_BUS_ADDRESS"

heading "Starting the simulated terms-client service"
printf '%s$ terms-service-sim --catalogue data/catalogue.json --store-root %s \\\n' "$DIM" "$VCONF_ROOT"
printf '      --set-dir %s --usb-dir %s%s\n' "$WORK/set" "$WORK/usb" "$RESET"
DLOG_OUTPUT="file:$WORK/service.log" terms-service-sim --catalogue "$CATALOGUE" --store-root "$VCONF_ROOT" \
  --set-dir "$WORK/set" --usb-dir "$WORK/usb" >"$WORK/service.out" 2>&1 &
SIM_PID=$!
remember_process "$SIM_PID"
# Ready when it answers; terms-cli status exits with 3 until then.
ready=no
for _ in $(seq 100); do
  if terms-cli status >/dev/null 2>&1; then ready=yes; break; fi
  if ! kill -0 "$SIM_PID" 2>/dev/null; then
    cat "$WORK/service.out" >&2
    fail "the simulated service stopped before it answered"
  fi
  sleep 0.1
done
[ "$ready" = yes ] || fail "the simulated service did not answer within 10 seconds"
cat "$WORK/service.out"

heading "1. Is the terms-client service available?"
run terms-cli status

heading "2. The disclaimers of the setup wizard (requester 0)"
run terms-cli list

heading "3. One disclaimer in full, with its sections"
run terms-cli show privacy

heading "4. Agree to two items"
run terms-cli agree terms privacy

heading "5. Read the agreements back from the configuration store"
run terms-cli agreement terms
run terms-cli agreement privacy
run vconftool get db/veranti/disclaimeragrees

heading "6. A revised disclaimer"
run terms-cli revised

heading "7. The menu titles"
run terms-cli titles

heading "8. The same answers for scripts"
run terms-cli --json agreement privacy

heading "Done"
echo "The walk-through is complete; the service and the bus are stopped now."
echo "Next: terms-cli --help, docs/cli.md, docs/simulator.md."
