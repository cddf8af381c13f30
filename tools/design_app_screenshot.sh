#!/bin/bash
# The README's screenshot of a pen colour arriving in a design application:
# Inkscape (from make design-apps-deps) with one shape selected, the panel
# beside it, and the simulated pen sending #FF8C1A; the panel pushes it and
# the shape takes it. A private Xvfb (1280x720), a private "system" bus with
# the fake BlueZ, a private session bus for Inkscape and the panel, and a
# throwaway HOME.
#   tools/design_app_screenshot.sh [BUILD_DIR] [OUT_DIR]  (defaults: build, docs/images)
set -euo pipefail

build=${1:-build}
out=${2:-docs/images}

me=design_app_screenshot
# shellcheck source=tools/lib/private_session.sh
source "$(dirname "$0")/lib/private_session.sh"
tintwell=$(find_bin "$build/tintwell" "$build/src/tintwell")
grab=$(find_bin "$build/tools/grab/tw_grab" "$build/tw_grab")
fake=$(find_bin "$build/tests/pen/fake_bluez/fake_bluez" "$build/fake_bluez")
for tool in Xvfb xdotool dbus-daemon dbus-send gdbus inkscape; do
  command -v "$tool" >/dev/null || { echo "design_app_screenshot: $tool is missing (make design-apps-deps)" >&2; exit 1; }
done

readonly pen=AA:BB:CC:DD:EE:02
readonly pen_colour=(0x01 0xFF 0x8C 0x1A) # packet: counter, red, green, blue = #FF8C1A
readonly pen_hex=FF8C1A
readonly battery_level=70

mkdir -p "$out"

# --- X server, buses and a clean environment ---
start_xvfb 1280x720x24
start_system_bus
dbus-daemon --session --nofork --print-address=3 3>"$work/session" 2>/dev/null &
pids+=($!)
for _ in $(seq 200); do [ -s "$work/session" ] && break; sleep 0.05; done
[ -s "$work/session" ] || fail "the session bus did not start"
DBUS_SESSION_BUS_ADDRESS=$(head -n1 "$work/session")
export DBUS_SESSION_BUS_ADDRESS
export TINTWELL_TELEMETRY_URL=https://127.0.0.1:9 TINTWELL_TIME_SCALE=0.1
export QT_QPA_PLATFORM=xcb QT_STYLE_OVERRIDE=Fusion QT_QPA_PLATFORMTHEME=
export QT_SCALE_FACTOR=1 QT_ENABLE_HIGHDPI_SCALING=0 LANG=C.UTF-8 LC_ALL=C.UTF-8 NO_AT_BRIDGE=1
export XDG_RUNTIME_DIR=$work/runtime HOME=$work/home XDG_CONFIG_HOME=$work/home/.config
export XDG_DATA_HOME=$work/home/.local/share WINEPREFIX=$work/wine
mkdir -m 700 "$XDG_RUNTIME_DIR" "$HOME"
mkdir -p "$XDG_CONFIG_HOME/inkscape" "$XDG_DATA_HOME"
unset WAYLAND_DISPLAY XDG_CURRENT_DESKTOP XDG_SESSION_TYPE DESKTOP_SESSION QT_FONT_DPI SESSION_MANAGER

inkscape_action() { # inkscape_action OBJECT ACTION PARAMETERS
  gdbus call --session --dest org.inkscape.Inkscape --object-path "/org/inkscape/Inkscape$1" \
    --method org.gtk.Actions.Activate "$2" "$3" "{}" >/dev/null
}
window_of() { # window_of NAME-REGEX: waits for a visible window and prints it
  local deadline=$((SECONDS + 60)) w=''
  until w=$(xdotool search --onlyvisible --name "$1" 2>/dev/null | head -n1) && [ -n "$w" ]; do
    ((SECONDS < deadline)) || fail "no window /$1/ appeared"
    sleep 0.2
  done
  echo "$w"
}

# --- Inkscape with a small drawing, the middle shape selected ---
echo '<inkscape version="1"><group id="options"><group id="boot" enabled="0"/></group></inkscape>' \
  >"$XDG_CONFIG_HOME/inkscape/preferences.xml"
cat >"$HOME/swatches.svg" <<'SVG'
<svg xmlns="http://www.w3.org/2000/svg" width="300" height="140" viewBox="0 0 300 140">
  <rect id="left" x="10" y="20" width="80" height="100" rx="8" style="fill:#3a6ea5"/>
  <circle id="middle" cx="150" cy="70" r="50" style="fill:#cccccc;stroke:#333333;stroke-width:2"/>
  <rect id="right" x="210" y="20" width="80" height="100" rx="8" style="fill:#6b8e23"/>
</svg>
SVG
inkscape "$HOME/swatches.svg" >"$work/inkscape.out" 2>&1 &
pids+=($!)
deadline=$((SECONDS + 90))
until inkscape_action /window/1 select-none "[]" 2>/dev/null; do
  ((SECONDS < deadline)) || fail "Inkscape did not come up"
  sleep 0.3
done
inkscape_window=$(window_of 'swatches.svg')
xdotool windowmove "$inkscape_window" 0 0 windowsize "$inkscape_window" 900 700
sleep 1
inkscape_action /window/1 canvas-zoom-page "[]"
# Select the circle by clicking it is fragile at unknown zoom; the action
# selects by id.
inkscape_action "" select-by-id "[<'middle'>]"

# --- The pen and the panel ---
fake_pid=''
start_fake() { # start_fake NAME [ARGS...]
  "$fake" "${@:2}" >"$work/$1.fake.out" 2>&1 &
  fake_pid=$!
  pids+=("$fake_pid")
  wait_for "$work/$1.fake.out" '^ready$'
}
start_fake pen --pen "QUILLA-Pen 02" --interval-ms 0
control SetBattery string:$pen byte:$battery_level >/dev/null
"$tintwell" >"$work/pen.out" 2>&1 &
pids+=($!)
panel=$(window_of '^Tintwell$')
wait_for "$work/pen.out" '^FAFAFA$'
xdotool windowmove "$panel" 930 120
wait_for "$work/pen.out" '^connected hihi$' 30
packet=$(IFS=,; echo "${pen_colour[*]}")
deadline=$((SECONDS + 15))
until control SendColor string:$pen array:byte:"$packet" | grep -q 'boolean true'; do
  ((SECONDS < deadline)) || fail "the pen's colour was never listened to"
  sleep 0.1
done
wait_for "$work/pen.out" "^$pen_hex\$"
# The push is confirmed by Inkscape's own export; the shot waits for its redraw.
sleep 2
grep -q "Inkscape:" "$work/pen.out" && fail "the push into Inkscape failed: $(grep Inkscape: "$work/pen.out")"
"$grab" "$out/design-app-inkscape.png" 0 || fail "could not grab the screen"
echo "$out/design-app-inkscape.png"
