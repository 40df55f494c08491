# Shell functions shared by demo.sh and bench.sh (source this file): the
# skeleton of a script that starts processes and must stop them on every way
# out, and a private D-Bus daemon standing in for the system bus.
#
# A script sets SCRIPT_NAME, calls stop_everything_on_exit once, makes its
# scratch directory with make_work_dir and registers what it starts with
# remember_process. On exit (done, failed, Ctrl-C or SIGTERM) the processes
# are stopped newest first and the scratch directory is removed.

WORK=""
STARTED=()

# Prints "<script>: <message>" and exits with status 1 (which stops everything).
fail() {
  printf '%s: %s\n' "$SCRIPT_NAME" "$*" >&2
  exit 1
}

# Stops one process: SIGTERM, then SIGKILL after 5 s.
stop_process() {
  local pid=$1
  kill -TERM "$pid" 2>/dev/null || return 0
  for _ in $(seq 50); do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  kill -KILL "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
}

remember_process() {
  STARTED+=("$1")
}

# Stops a remembered process now (before the script ends).
stop_remembered_process() {
  local pid=$1 kept=() p
  stop_process "$pid"
  for p in "${STARTED[@]}"; do [ "$p" = "$pid" ] || kept+=("$p"); done
  STARTED=("${kept[@]}")
}

stop_everything() {
  local status=$?
  trap - EXIT INT TERM
  local i
  for ((i = ${#STARTED[@]} - 1; i >= 0; i--)); do stop_process "${STARTED[i]}"; done
  if [ -n "$WORK" ]; then rm -rf "$WORK"; fi
  if [ "$status" -ne 0 ]; then
    printf '\n%s: stopped (exit status %d); everything it started is stopped.\n' "$SCRIPT_NAME" "$status" >&2
  fi
  exit "$status"
}

stop_everything_on_exit() {
  trap stop_everything EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
}

# Makes the scratch directory WORK, removed on exit.
make_work_dir() {
  WORK=$(mktemp -d "/tmp/veranti-$SCRIPT_NAME-XXXXXX")
}

# Starts a dbus-daemon with the configuration the test bed uses too
# (scripts/private-bus.conf: any connection may own any name and send to any
# other; the daemon's own limits, 32 MiB per message, apply), listening in
# directory $1, where its address and log go too. Remembers its pid in
# PRIVATE_BUS_PID and exports DBUS_SYSTEM_BUS_ADDRESS; returns 1, with the
# daemon stopped, when it does not come up.
start_private_bus() {
  local dir=$1
  local config
  config="$(dirname "${BASH_SOURCE[0]}")/private-bus.conf"
  dbus-daemon --config-file="$config" --address="unix:dir=$dir" --nofork --nopidfile --print-address=3 \
    3>"$dir/bus.address" 2>"$dir/bus.log" &
  PRIVATE_BUS_PID=$!
  for _ in $(seq 50); do
    [ -s "$dir/bus.address" ] && break
    sleep 0.1
  done
  if [ ! -s "$dir/bus.address" ]; then
    stop_process "$PRIVATE_BUS_PID"
    return 1
  fi
  remember_process "$PRIVATE_BUS_PID"
  DBUS_SYSTEM_BUS_ADDRESS=$(head -n 1 "$dir/bus.address")
  export DBUS_SYSTEM_BUS_ADDRESS
}
