#!/bin/bash
# The README's screenshots of the desktop panel, taken the same way every time:
# a private Xvfb (900x700, 96 dpi, solid #2E9E6B background), a private D-Bus
# "system" bus with the fake BlueZ, fresh settings folders for every run, and
# fixed colours and battery level sent to the simulated pen.
#   tools/screenshots.sh [BUILD_DIR] [OUT_DIR]    (defaults: build, docs/images)
# Needs Xvfb, xdotool, python3, xcompmgr (the picking window is only shown
# under a compositing manager), trayer (an X11 tray for the tray icon) and
# dbus-daemon/dbus-send.
set -euo pipefail

build=${1:-build}
out=${2:-docs/images}

me=screenshots
# shellcheck source=tools/lib/private_session.sh
source "$(dirname "$0")/lib/private_session.sh"
tintwell=$(find_bin "$build/tintwell" "$build/src/tintwell")
grab=$(find_bin "$build/tools/grab/tw_grab" "$build/tw_grab")
fake=$(find_bin "$build/tests/pen/fake_bluez/fake_bluez" "$build/fake_bluez")
for tool in Xvfb xdotool python3 xcompmgr trayer dbus-daemon dbus-send; do
  command -v "$tool" >/dev/null || { echo "screenshots: $tool is missing" >&2; exit 1; }
done

readonly pen=AA:BB:CC:DD:EE:02
# The root window's colour, which the dropper picks: not the dropper image's
# own blue, so the image stands out in the shot.
readonly background='#2E9E6B'
readonly pen_colour=(0x01 0xFF 0x8C 0x1A) # packet: counter, red, green, blue = #FF8C1A
readonly pen_hex=FF8C1A
readonly battery_level=70

mkdir -p "$out"

# --- X server, bus and a clean environment ---
start_xvfb 900x700x24
# The background as a root pixmap named in _XROOTPMAP_ID: a compositing
# manager paints that (xsetroot -solid alone gives xcompmgr's grey).
python3 - "$background" <<'PY' || fail "could not set the root background"
import ctypes, sys
x = ctypes.CDLL("libX11.so.6")
x.XOpenDisplay.restype = ctypes.c_void_p
x.XOpenDisplay.argtypes = [ctypes.c_char_p]
d = ctypes.c_void_p(x.XOpenDisplay(None))
if not d:
    sys.exit("no display")
x.XRootWindow.restype = ctypes.c_ulong
x.XCreatePixmap.restype = ctypes.c_ulong
x.XCreatePixmap.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_uint, ctypes.c_uint, ctypes.c_uint]
x.XCreateGC.restype = ctypes.c_void_p
x.XCreateGC.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_ulong, ctypes.c_void_p]
x.XSetForeground.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_ulong]
x.XFillRectangle.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_void_p, ctypes.c_int, ctypes.c_int, ctypes.c_uint, ctypes.c_uint]
x.XInternAtom.restype = ctypes.c_ulong
x.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
x.XChangeProperty.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_ulong, ctypes.c_ulong, ctypes.c_int, ctypes.c_int, ctypes.c_void_p, ctypes.c_int]
x.XSetWindowBackgroundPixmap.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_ulong]
x.XClearWindow.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
screen = x.XDefaultScreen(d)
root = x.XRootWindow(d, screen)
if x.XDefaultDepth(d, screen) != 24:
    sys.exit("not a 24-bit screen")
width, height = x.XDisplayWidth(d, screen), x.XDisplayHeight(d, screen)
pixmap = x.XCreatePixmap(d, root, width, height, 24)
gc = x.XCreateGC(d, pixmap, 0, None)
x.XSetForeground(d, gc, int(sys.argv[1].lstrip("#"), 16))  # TrueColor: the pixel is 0xRRGGBB
x.XFillRectangle(d, pixmap, gc, 0, 0, width, height)
XA_PIXMAP, REPLACE, RETAIN_PERMANENT = 20, 0, 1
value = ctypes.c_ulong(pixmap)
for name in (b"_XROOTPMAP_ID", b"ESETROOT_PMAP_ID"):
    x.XChangeProperty(d, root, x.XInternAtom(d, name, 0), XA_PIXMAP, 32, REPLACE, ctypes.byref(value), 1)
x.XSetWindowBackgroundPixmap(d, root, pixmap)
x.XClearWindow(d, root)
x.XSetCloseDownMode(d, RETAIN_PERMANENT)  # the pixmap outlives this client
x.XCloseDisplay(d)
PY

start_system_bus
export DBUS_SESSION_BUS_ADDRESS=disabled:
export TINTWELL_TELEMETRY_URL=https://127.0.0.1:9
# The battery image follows 3 s after connecting; a tenth of that is enough.
export TINTWELL_TIME_SCALE=0.1
# The same look whatever desktop the script is started from.
export QT_QPA_PLATFORM=xcb QT_STYLE_OVERRIDE=Fusion QT_QPA_PLATFORMTHEME=
export QT_SCALE_FACTOR=1 QT_ENABLE_HIGHDPI_SCALING=0 LANG=C.UTF-8 LC_ALL=C.UTF-8
export XDG_RUNTIME_DIR=$work/runtime HOME=$work/home
mkdir -m 700 "$XDG_RUNTIME_DIR" "$HOME"
unset WAYLAND_DISPLAY XDG_CURRENT_DESKTOP XDG_SESSION_TYPE DESKTOP_SESSION QT_FONT_DPI

fake_pid='' app_pid=''
start_fake() { # start_fake NAME [ARGS...]
  "$fake" "${@:2}" >"$work/$1.fake.out" 2>&1 &
  fake_pid=$!
  pids+=("$fake_pid")
  wait_for "$work/$1.fake.out" '^ready$'
}
start_app() { # start_app NAME: tintwell with fresh settings; sets window
  mkdir -p "$work/$1/home" "$work/$1/config" "$work/$1/data"
  HOME="$work/$1/home" XDG_CONFIG_HOME="$work/$1/config" XDG_DATA_HOME="$work/$1/data" \
    WINEPREFIX="$work/$1/wine" \
    "$tintwell" >"$work/$1.out" 2>&1 &
  app_pid=$!
  pids+=("$app_pid")
  window=''
  local deadline=$((SECONDS + 15))
  until window=$(xdotool search --onlyvisible --name '^Tintwell$' 2>/dev/null | head -n1) &&
    [ -n "$window" ]; do
    ((SECONDS < deadline)) || fail "the Tintwell window did not appear"
    sleep 0.1
  done
  # The first colour (#FAFAFA) is shown as the panel appears.
  wait_for "$work/$1.out" '^FAFAFA$'
}
shot() { # shot FILE [WINDOW [X Y WIDTH HEIGHT]]: after the queued repaints are done
  sleep 0.5
  "$grab" "$out/$1" "${2:-0}" "${@:3}" || fail "could not grab $1"
  written+=("$out/$1")
}
written=()

# --- 1. Start-up: no pen anywhere (an adapter, but nothing to find) ---
start_fake startup
control AddAdapter string:hci0 boolean:true >/dev/null
start_app startup
shot panel-startup.png "$window"
stop "$app_pid"
stop "$fake_pid"

# --- 2, 3. A pen: connected, its battery, then a colour from it ---
# --interval-ms 0: the pen sends only what it is told to.
start_fake pen --pen "QUILLA-Pen 02" --interval-ms 0
control SetBattery string:$pen byte:$battery_level >/dev/null
start_app pen
wait_for "$work/pen.out" '^connected hihi$'
wait_for "$work/pen.out" "^Batter Level: $battery_level %\$"
shot panel-connected-battery.png "$window"

# The colour notification is only sent once the app listens to the colour.
packet=$(IFS=,; echo "${pen_colour[*]}")
deadline=$((SECONDS + 15))
until control SendColor string:$pen array:byte:"$packet" | grep -q 'boolean true'; do
  ((SECONDS < deadline)) || fail "the pen's colour was never listened to"
  sleep 0.1
done
wait_for "$work/pen.out" "^$pen_hex\$"
shot panel-pen-colour.png "$window"

# --- 4. The dropper armed: the picking window needs a compositing manager ---
xcompmgr >"$work/xcompmgr.out" 2>&1 &
pids+=($!)
sleep 0.5
# The dropper button is the first of the three icons at the bottom right:
# reached from the window's bottom-right corner through the layout's 14/10 px
# margins and 6 px spacing, with Fusion's 34x30 flat buttons for 22 px icons.
# A miss shows as no "cursor changed" below.
eval "$(xdotool getwindowgeometry --shell "$window")"
xdotool mousemove $((X + WIDTH - 14 - 34 - 6 - 34 - 6 - 17)) $((Y + HEIGHT - 10 - 15))
sleep 0.3
xdotool click 1
wait_for "$work/pen.out" '^cursor changed$'
grep -q 'no compositor' "$work/pen.out" && fail "the compositing manager was not seen"
# Over the empty background, away from where the panel was.
xdotool mousemove 600 380
wait_for "$work/pen.out" '^mouseMoved xxx : \(600\.0, 380\.0\)$'
shot dropper-armed.png

# --- 5. One click picks the background; the panel comes back with it ---
xdotool click 1
pick_hex=${background#\#}
wait_for "$work/pen.out" "^${pick_hex^^}\$"
deadline=$((SECONDS + 15))
until window=$(xdotool search --onlyvisible --name '^Tintwell$' 2>/dev/null | head -n1) &&
  [ -n "$window" ]; do
  ((SECONDS < deadline)) || fail "the panel did not come back after the pick"
  sleep 0.1
done
shot panel-after-pick.png "$window"

# --- 6. The history window: more pen colours, then Ctrl+H, and the pen's
# reading of the background's green selected with the screen pick of it, for
# their difference ---
readonly more_colours=("0x02 0x1E 0x5A 0x9C" "0x03 0xC8 0x10 0x2E" "0x04 0xF2 0xC9 0x4C"
  "0x05 0x6B 0x4E 0x9B" "0x06 0x2F 0x9E 0x6F")
for colour in "${more_colours[@]}"; do
  read -r counter red green blue <<<"$colour"
  control SendColor string:$pen array:byte:"$counter,$red,$green,$blue" >/dev/null
  printf -v hex '%02X%02X%02X' "$red" "$green" "$blue"
  wait_for "$work/pen.out" "^$hex\$"
done
xdotool windowactivate --sync "$window" 2>/dev/null || true
xdotool key --window "$window" ctrl+h
deadline=$((SECONDS + 15))
until history=$(xdotool search --onlyvisible --name '^Colour History$' 2>/dev/null | head -n1) &&
  [ -n "$history" ]; do
  ((SECONDS < deadline)) || fail "the history window did not open"
  sleep 0.1
done
xdotool windowmove --sync "$history" 10 10 2>/dev/null || true
sleep 0.5
# Rows are 26 px, the first 57 px below the window's top, newest first: the
# pen's green is row 0, the screen pick row 5. Clicked on the source column,
# away from the swatch (a click there sends the colour again).
eval "$(xdotool getwindowgeometry --shell "$history")"
row_y() { echo $((Y + 57 + 26 * $1 + 13)); }
xdotool mousemove $((X + 700)) "$(row_y 0)" click 1
xdotool keydown ctrl mousemove $((X + 700)) "$(row_y 5)" click 1 keyup ctrl
shot history-window.png "$history"

# --- 7. The magnifier and the tray: both options on, an X11 tray at the
# top right ---
stop "$app_pid"
trayer --edge top --align right --widthtype request --height 28 --SetDockType false \
  --transparent false --tint 0x303030 >"$work/trayer.out" 2>&1 &
pids+=($!)
sleep 0.5
mkdir -p "$work/lens/config/Orlo"
printf '[picker]\nmagnifier=true\n[tray]\nshow=true\n' >"$work/lens/config/Orlo/Tintwell.conf"
start_app lens
wait_for "$work/lens.out" '^connected hihi$'
control SendColor string:$pen array:byte:"0x07,0xFF,0x8C,0x1A" >/dev/null
wait_for "$work/lens.out" "^$pen_hex\$"
eval "$(xdotool getwindowgeometry --shell "$window")"
panel_x=$X panel_y=$Y
xdotool mousemove $((X + WIDTH - 14 - 34 - 6 - 34 - 6 - 17)) $((Y + HEIGHT - 10 - 15))
sleep 0.3
xdotool click 1
wait_for "$work/lens.out" '^cursor changed$'
# On the edge of the tray icon (the pen's colour), so that the lens shows
# two colours; arrow keys bring the pointer onto the exact pixel.
tray=$(xdotool search --name '^panel$' 2>/dev/null | head -n1)
[ -n "$tray" ] || fail "the tray did not appear"
eval "$(xdotool getwindowgeometry --shell "$tray")"
xdotool mousemove $((X + 8)) $((Y + 16))
sleep 0.3
xdotool key Left Left Down
shot magnifier.png 0 $((X - 300)) 0 $((WIDTH + 300)) 220
xdotool key Escape
deadline=$((SECONDS + 15))
until window=$(xdotool search --onlyvisible --name '^Tintwell$' 2>/dev/null | head -n1) &&
  [ -n "$window" ]; do
  ((SECONDS < deadline)) || fail "the panel did not come back after Escape"
  sleep 0.1
done

# The tray icon in the pen's colour, and its menu.
eval "$(xdotool getwindowgeometry --shell "$tray")"
xdotool mousemove $((X + 14)) $((Y + 14)) click 3
sleep 0.5
shot tray-menu.png 0 $((X - 230)) 0 $((WIDTH + 240)) 220
xdotool key Escape

printf '%s\n' "${written[@]}"
