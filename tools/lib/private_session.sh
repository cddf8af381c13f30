# Shared by the scripts that run Tintwell under a private X server and buses
# (tools/screenshots.sh, tools/design_app_screenshot.sh, tools/demo.sh).
# Source it after setting `me` (the script's name, for messages); it makes
# the scratch folder $work and the list $pids of processes to end on exit.

work=$(mktemp -d)
pids=()

find_bin() { # find_bin CANDIDATE...: the first executable one
  for candidate in "$@"; do
    [ -x "$candidate" ] && { echo "$candidate"; return 0; }
  done
  echo "$me: cannot find $1; build first (make build)" >&2
  return 1
}
stop() { # stop PID: ends one process this script started and reaps it
  kill "$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
}
cleanup() {
  local i
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do stop "${pids[i]}"; done
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

fail() {
  echo "$me: $*" >&2
  for log in "$work"/*.out; do
    [ -e "$log" ] && { echo "--- $log" >&2; tail -n 20 "$log" >&2; }
  done
  exit 1
}

# wait_for FILE REGEX [SECONDS]: until a line of FILE matches
wait_for() {
  local deadline=$((SECONDS + ${3:-15}))
  until grep -Eq -- "$2" "$1" 2>/dev/null; do
    ((SECONDS < deadline)) || fail "timed out waiting for /$2/ in $1"
    sleep 0.05
  done
}

# start_xvfb WxHxD: a private X server; exports DISPLAY
start_xvfb() {
  Xvfb -displayfd 3 -screen 0 "$1" -dpi 96 -noreset -nolisten tcp 3>"$work/display" \
    >"$work/xvfb.log" 2>&1 &
  pids+=($!)
  for _ in $(seq 200); do [ -s "$work/display" ] && break; sleep 0.05; done
  [ -s "$work/display" ] || fail "Xvfb did not start"
  DISPLAY=:$(head -n1 "$work/display")
  export DISPLAY
}

# start_system_bus: a private bus configured as a system bus, where the fake
# BlueZ may own its name; exports DBUS_SYSTEM_BUS_ADDRESS
start_system_bus() {
  cat >"$work/bus.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=$work/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/><allow own="*"/><allow send_type="method_call"/>
    <allow send_destination="*"/><allow receive_sender="*"/>
  </policy>
</busconfig>
CONF
  dbus-daemon --config-file="$work/bus.conf" --nofork --print-address=3 3>"$work/address" \
    2>/dev/null &
  pids+=($!)
  for _ in $(seq 200); do [ -s "$work/address" ] && break; sleep 0.05; done
  [ -s "$work/address" ] || fail "dbus-daemon did not start"
  DBUS_SYSTEM_BUS_ADDRESS=$(head -n1 "$work/address")
  export DBUS_SYSTEM_BUS_ADDRESS
}

control() { # control METHOD ARGS...: a call on the fake BlueZ's control interface
  dbus-send --system --print-reply --dest=org.tintwell.FakeBluez /org/tintwell/FakeBluez \
    "org.tintwell.FakeBluez1.$1" "${@:2}"
}
