#!/bin/bash
# The pen link end to end without hardware: a private D-Bus "system" bus, the
# fake BlueZ with a pen named "QUILLA-Pen 02" that sends a colour every second
# once connected, and `tintwell listen` against it. Ctrl-C ends it.
#   tools/demo.sh [BUILD_DIR]        (default: build)
#   DEMO_SECONDS=N tools/demo.sh     stops by itself after N seconds
set -euo pipefail

build=${1:-build}
me=demo
# shellcheck source=tools/lib/private_session.sh
source "$(dirname "$0")/lib/private_session.sh"
tintwell=$(find_bin "$build/tintwell" "$build/src/tintwell")
fake=$(find_bin "$build/tests/pen/fake_bluez/fake_bluez")

start_system_bus
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
