#!/bin/bash
# The pen link end to end without hardware: a private D-Bus "system" bus, the
# fake BlueZ with a pen named "QUILLA-Pen 02" that sends a colour every second
# once connected, and `tintwell listen` against it. Ctrl-C ends it.
#   tools/demo.sh [BUILD_DIR]        (default: build)
#   DEMO_SECONDS=N tools/demo.sh     stops by itself after N seconds
set -euo pipefail

build=${1:-build}
find_bin() {
  for candidate in "$@"; do
    [ -x "$candidate" ] && { echo "$candidate"; return 0; }
  done
  echo "demo: cannot find $1; build first (make build)" >&2
  return 1
}
tintwell=$(find_bin "$build/tintwell" "$build/src/tintwell")
fake=$(find_bin "$build/tests/pen/fake_bluez/fake_bluez")

work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

cat > "$work/bus.conf" <<CONF
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

dbus-daemon --config-file="$work/bus.conf" --nofork --print-address=3 3>"$work/address" 2>/dev/null &
pids+=($!)
for _ in $(seq 100); do [ -s "$work/address" ] && break; sleep 0.05; done
export DBUS_SYSTEM_BUS_ADDRESS=$(head -n1 "$work/address")
export DBUS_SESSION_BUS_ADDRESS=disabled:
# A fresh settings folder: the first run finds the pen by scanning. The script
# folder and the Wine prefix are the demo's own, and usage reports go to a
# local port where nothing listens (override with TINTWELL_TELEMETRY_URL).
export XDG_CONFIG_HOME="$work/config"
export XDG_DATA_HOME="$work/data"
export WINEPREFIX="$work/wine"
export TINTWELL_TELEMETRY_URL=${TINTWELL_TELEMETRY_URL:-https://127.0.0.1:9}

"$fake" --pen "QUILLA-Pen 02" --interval-ms 1000 >"$work/fake.out" &
pids+=($!)
for _ in $(seq 100); do grep -q ready "$work/fake.out" 2>/dev/null && break; sleep 0.05; done

echo "demo: private bus $DBUS_SYSTEM_BUS_ADDRESS; fake pen \"QUILLA-Pen 02\"; Ctrl-C to stop" >&2
if [ -n "${DEMO_SECONDS:-}" ]; then
  timeout -s INT "$DEMO_SECONDS" "$tintwell" listen || true
else
  "$tintwell" listen || true
fi
