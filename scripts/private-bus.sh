# Shell functions shared by demo.sh and bench.sh (source this file):
# a private D-Bus daemon standing in for the system bus, and stopping the
# processes a script started.

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

# Starts a dbus-daemon with its socket, configuration and log in directory $1,
# on which any connection may own any name and send to any other (the daemon's
# own limits, 32 MiB per message, apply). Sets PRIVATE_BUS_PID and exports
# DBUS_SYSTEM_BUS_ADDRESS; returns 1, with the daemon stopped, when it does not
# come up.
start_private_bus() {
  local dir=$1
  cat >"$dir/bus.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:dir=$dir</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow receive_sender="*"/>
    <allow eavesdrop="true"/>
  </policy>
</busconfig>
CONF
  dbus-daemon --config-file="$dir/bus.conf" --nofork --nopidfile --print-address=3 3>"$dir/bus.address" \
    2>"$dir/bus.log" &
  PRIVATE_BUS_PID=$!
  for _ in $(seq 50); do
    [ -s "$dir/bus.address" ] && break
    sleep 0.1
  done
  if [ ! -s "$dir/bus.address" ]; then
    stop_process "$PRIVATE_BUS_PID"
    return 1
  fi
  DBUS_SYSTEM_BUS_ADDRESS=$(head -n 1 "$dir/bus.address")
  export DBUS_SYSTEM_BUS_ADDRESS
}
