#!/usr/bin/env bash
# Start-up time and resident memory of tintwell's desktop panel next to three
# other colour pickers, an empty Qt 6 Widgets window (the floor) and that
# window with only the panel's texts in its three fonts (bench/text_qt_window.cpp,
# the floor for a window that draws text), all under one private Xvfb
# (1024x768x24, -noreset).
#
# Usage: bench/startup_compare.sh [--install] [TINTWELL_BINARY]
#   TINTWELL_BINARY  default $BUILD/tintwell, BUILD defaulting to build
#   --install        apt-get install the missing comparison programs (gcolor3,
#                    gpick, kcolorchooser); INSTALL=1 does the same. Without
#                    either a missing one is skipped with a note.
#   RUNS=N           timed runs per program (default 7)
#   WARMUP=N         untimed rounds first (default 1), so every program's files
#                    are in the page cache before timing and none is the one
#                    paying for the disk. It also covers a one-off of GTK 3:
#                    the first GTK client on a new display probes GLX (Mesa's
#                    software driver and libLLVM, about +55 MiB and +100 ms)
#                    and caches the answer in the root window's GDK_VISUALS;
#                    on a desktop that has long happened before a picker starts.
#   TIMEOUT_S=N      give up on a window after N seconds (default 30)
#   TINTWELL_SETTINGS=TEXT
#                    tintwell's settings file for every run (default: history
#                    and the tray icon on, "[history]\nenabled=true\n[tray]\nshow=true\n",
#                    the panel as a user who keeps both would start it);
#                    an empty value starts it with no settings file.
#
# One run: start the stop watch (bench/map_waiter.c, an X client that listens
# for MapNotify on the root window and reads each mapped window's WM_NAME),
# take the time, start the program; the stop watch gives the moment a window
# named '^<its title>$' was mapped; that is the start-up time. Three seconds
# later read VmRSS from /proc/PID/status (the program's own process, in MiB).
# Then SIGTERM, SIGKILL after 2 s, wait. The stop watch waits on the X
# connection without polling, so it takes no processor time from the program
# it measures (an earlier version polled with xdotool every 5 ms, and those
# processes slowed the program under test by a varying amount).
#
# Runs are interleaved in rounds (every program once, then again) so load
# drift on a shared machine hits all of them alike, each round in a new random
# order (see shuffled in startup_common.sh); medians are reported.
#
# Every run gets a fresh HOME, XDG_CONFIG_HOME, XDG_DATA_HOME, XDG_CACHE_HOME
# and XDG_RUNTIME_DIR (mode 700) under a temp dir and an otherwise empty
# environment, so no per-user cache (fontconfig, icon, GL shader, settings)
# helps one program more than another: each starts as on its first day.
# The session bus is off (DBUS_SESSION_BUS_ADDRESS=disabled:) and the system
# bus points nowhere (unix:path=/nonexistent): tintwell then finds no
# Bluetooth, which is its start-up path on a machine without BlueZ.
# TINTWELL_TELEMETRY_URL=https://127.0.0.1:9 keeps its telemetry off the
# network. QT_QPA_PLATFORM=xcb and GDK_BACKEND=x11, no WAYLAND_DISPLAY.
#
# KColorChooser is a KDE program; with the session bus disabled it starts no
# kdeinit and no D-Bus service and still shows its window (it prints
# "Qt: Invalid color format" on start, harmless). Anything a program leaves
# running after it is killed is listed and killed too.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=bench/startup_common.sh
. "$here/startup_common.sh"
install=${INSTALL:-0}
tintwell=""
for arg in "$@"; do
  case $arg in
    --install) install=1 ;;
    -h | --help)
      sed -n '2,/^set -euo/{/^set -euo/d;s/^# \{0,1\}//;p}' "${BASH_SOURCE[0]}"
      exit 0
      ;;
    -*)
      echo "unknown option: $arg" >&2
      exit 2
      ;;
    *) tintwell=$arg ;;
  esac
done
tintwell=${tintwell:-${BUILD:-build}/tintwell}
runs=${RUNS:-7}
warmup=${WARMUP:-1}
timeout_s=${TIMEOUT_S:-30}
tintwell_settings=${TINTWELL_SETTINGS-'[history]\nenabled=true\n[tray]\nshow=true\n'}

for tool in Xvfb xdotool gcc g++ pkg-config; do
  command -v "$tool" > /dev/null || {
    echo "missing: $tool (apt-get install xvfb xdotool g++ pkg-config qt6-base-dev)" >&2
    exit 1
  }
done
[[ -x $tintwell ]] || {
  echo "no tintwell binary at $tintwell (give its path as the argument)" >&2
  exit 1
}
tintwell=$(cd "$(dirname "$tintwell")" && pwd)/$(basename "$tintwell")

work=$(mktemp -d /tmp/startup_compare.XXXXXX)
# Marks every process this script starts, so leftovers (daemons a program
# spawns in a session of their own) can be found by id and ended.
token="STARTUP_COMPARE_TOKEN=$$.$RANDOM$RANDOM"
xvfb_pid=""
child_pid=""

# Process ids whose environment carries this run's token.
marked_pids() {
  local environ pid
  for environ in /proc/[0-9]*/environ; do
    pid=${environ#/proc/}
    pid=${pid%/environ}
    [[ $pid == "$$" || $pid == "$BASHPID" ]] && continue
    grep -qzxF "$token" "$environ" 2> /dev/null && echo "$pid"
  done
  return 0
}

end_process() { # pid: SIGTERM to its group, SIGKILL after 2 s, reap
  local pid=$1 i
  kill -TERM -- "-$pid" 2> /dev/null || kill -TERM "$pid" 2> /dev/null || true
  for ((i = 0; i < 200; i++)); do
    kill -0 "$pid" 2> /dev/null || break
    pause 0.01
  done
  kill -KILL -- "-$pid" 2> /dev/null || kill -KILL "$pid" 2> /dev/null || true
  wait "$pid" 2> /dev/null || true
}

sweep() { # ends whatever a run left behind; prints what it found
  local pid left=()
  mapfile -t left < <(marked_pids)
  ((${#left[@]})) || return 0
  for pid in "${left[@]}"; do
    echo "  left running: $pid $(tr '\0' ' ' < "/proc/$pid/cmdline" 2> /dev/null)" >&2
    kill -TERM "$pid" 2> /dev/null || true
  done
  pause 1
  for pid in "${left[@]}"; do kill -KILL "$pid" 2> /dev/null || true; done
}

# shellcheck disable=SC2317 # reached through the trap
cleanup() {
  trap - EXIT INT TERM
  [[ -n $child_pid ]] && end_process "$child_pid"
  sweep 2> /dev/null || true
  if [[ -n $xvfb_pid ]]; then
    kill -TERM "$xvfb_pid" 2> /dev/null || true
    wait "$xvfb_pid" 2> /dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# A sleep without a fork per poll: read from a pipe nobody writes to.
exec {pause_fd}<> <(:)
pause() { read -r -t "$1" -u "$pause_fd" _ || true; }

now_us() { echo "${EPOCHREALTIME/./}"; }

# --- programs -------------------------------------------------------------
# name | command | exact window title (xdotool regex) | Debian package
names=(tintwell bare_qt_window text_qt_window gcolor3 gpick kcolorchooser)
declare -A cmd title pkg version note
cmd[tintwell]=$tintwell
title[tintwell]='^Tintwell$'
cmd[bare_qt_window]=$work/bare_qt_window
title[bare_qt_window]='^BareQt$'
cmd[text_qt_window]=$work/text_qt_window
title[text_qt_window]='^TextQt$'
cmd[gcolor3]=gcolor3
title[gcolor3]='^Color Picker$'
pkg[gcolor3]=gcolor3
cmd[gpick]=gpick
title[gpick]='^New palette - Gpick$'
pkg[gpick]=gpick
cmd[kcolorchooser]=kcolorchooser
# xdotool's --name matches WM_NAME, which is "Select Color" here; the
# " — KColorChooser" suffix is only in _NET_WM_NAME.
title[kcolorchooser]='^Select Color$'
pkg[kcolorchooser]=kcolorchooser

installed() { dpkg-query -W -f='${Status}' "$1" 2> /dev/null | grep -q 'install ok installed'; }

missing=()
for n in gcolor3 gpick kcolorchooser; do installed "${pkg[$n]}" || missing+=("${pkg[$n]}"); done
if ((${#missing[@]})) && [[ $install == 1 ]]; then
  sudo=""
  [[ $(id -u) == 0 ]] || sudo=sudo
  echo "installing: ${missing[*]}" >&2
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
fi
active=()
for n in "${names[@]}"; do
  if [[ -n ${pkg[$n]:-} ]] && ! installed "${pkg[$n]}"; then
    echo "note: $n is not installed, skipped (run with --install or INSTALL=1)" >&2
    continue
  fi
  active+=("$n")
done
version[tintwell]=$("$tintwell" --version 2> /dev/null | awk '{print $NF}' || true)
version[bare_qt_window]="Qt $(pkg-config --modversion Qt6Widgets)"
version[text_qt_window]=${version[bare_qt_window]}
for n in gcolor3 gpick kcolorchooser; do
  installed "${pkg[$n]}" && version[$n]=$(dpkg-query -W -f='${Version}' "${pkg[$n]}")
done

# --- the floors ----------------------------------------------------------------
build_floors "$here" "$work"
# --- the stop watch ------------------------------------------------------------
# shellcheck disable=SC2046
gcc -O2 -o "$work/map_waiter" "$here/map_waiter.c" $(pkg-config --cflags --libs x11)

# --- the display ---------------------------------------------------------
start_xvfb "$work/xvfb.log"
echo "Xvfb on $display (pid $xvfb_pid); ${#active[@]} programs, $runs runs each, $warmup warm-up round(s)" >&2

# --- one run ---------------------------------------------------------------
# Sets run_ms and run_mib, or returns 1 (no window in time or the program died).
run_once() {
  local n=$1 home t0 t1 pid wpid
  run_ms="" run_mib=""
  if [[ $n == tintwell ]]; then
    fresh_run "$work" "$tintwell_settings"
  else
    fresh_run "$work" ""
  fi
  home=$run_home
  # The stop watch listens before the program starts.
  coproc WAITER { DISPLAY=$display "$work/map_waiter" "${title[$n]}" "$timeout_s"; }
  # shellcheck disable=SC2153 # WAITER_PID is set by coproc
  waiter_pid=$WAITER_PID
  read -r -u "${WAITER[0]}" ready || ready=""
  if [[ $ready != ready ]]; then
    echo "  $n: the map waiter did not start" >&2
    rm -rf "$home"
    return 1
  fi
  t0=$(now_us)
  # setsid: a process group of its own, so its children end with it.
  setsid env -i "${run_env[@]}" "$token" GDK_BACKEND=x11 "${cmd[$n]}" >> "$work/$n.log" 2>&1 &
  pid=$!
  child_pid=$pid
  # A blocking read of the waiter's line, woken every 100 ms only to see
  # whether the program died first. A read that times out keeps what it had
  # read of the line, so the pieces are joined.
  line="" part=""
  while ! IFS= read -r -t 0.1 -u "${WAITER[0]}" part; do
    line+=$part
    if ! kill -0 "$pid" 2> /dev/null || (($(now_us) - t0 > timeout_s * 1000000)); then
      echo "  $n: no window (exited or over ${timeout_s} s); its output:" >&2
      tail -5 "$work/$n.log" | sed 's/^/    /' >&2
      kill "$waiter_pid" 2> /dev/null || true
      wait "$waiter_pid" 2> /dev/null || true
      end_process "$pid"
      child_pid=""
      sweep
      rm -rf "$home"
      return 1
    fi
  done
  line+=$part
  read -r t1 window <<< "$line"
  wait "$waiter_pid" 2> /dev/null || true
  run_ms=$(awk -v d=$((t1 - t0)) 'BEGIN {printf "%.1f", d / 1000}')
  wpid=$(DISPLAY=$display xdotool getwindowpid "$window" 2> /dev/null || true)
  [[ -z $wpid || $wpid == "$pid" ]] || note[$n]="window belongs to pid $wpid, not the started $pid"
  pause 3
  run_mib=$(awk '/^VmRSS:/ {printf "%.1f", $2 / 1024}' "/proc/$pid/status" 2> /dev/null || true)
  [[ -n $run_mib ]] || run_mib=NA
  end_process "$pid"
  child_pid=""
  sweep
  rm -rf "$home"
}

declare -A times mems fails
for ((r = 1; r <= warmup; r++)); do
  for n in "${active[@]}"; do
    run_once "$n" || true
    echo "warm-up $r: $n ${run_ms:-?} ms ${run_mib:-?} MiB" >&2
  done
done
for ((r = 1; r <= runs; r++)); do
  for n in $(shuffled "${active[@]}"); do
    if run_once "$n"; then
      times[$n]+="$run_ms "
      mems[$n]+="$run_mib "
      printf 'run %d/%d  %-15s %8s ms %7s MiB\n' "$r" "$runs" "$n" "$run_ms" "$run_mib" >&2
    else
      fails[$n]=$((${fails[$n]:-0} + 1))
    fi
  done
done

# --- report ------------------------------------------------------------------
range() { tr ' ' '\n' | grep -v '^$' | sort -g | awk 'NR==1 {lo=$1} {hi=$1} END {print lo "–" hi}'; }
# ratio other/tintwell as "1.18x slower" or "1.25x faster" (words from $2/$3)
ratio_words() {
  awk -v o="$1" -v t="$2" -v more="$3" -v less="$4" 'BEGIN {
    if (o == "NA" || t == "NA" || o <= 0 || t <= 0) { print "n/a"; exit }
    r = o / t
    if (r >= 1) printf "%.2fx %s\n", r, more; else printf "%.2fx %s\n", 1 / r, less }'
}

declare -A mt mm
for n in "${active[@]}"; do
  mt[$n]=$(echo "${times[$n]:-}" | median)
  mm[$n]=$(echo "${mems[$n]:-}" | median)
done
tt=${mt[tintwell]:-NA}
tm=${mm[tintwell]:-NA}

echo
echo "Start-up to visible main window and RSS 3 s later; $runs runs each, interleaved; medians."
echo "Machine: $(lscpu | sed -n 's/^Model name: *//p' | head -1), $(nproc) CPUs; $(date -u '+%Y-%m-%d %H:%M UTC')"
echo
echo "| program | version | runs ok | start-up median (ms) | start-up range (ms) | RSS median (MiB) | RSS range (MiB) | time / tintwell | RSS / tintwell |"
echo "|---|---|---|---|---|---|---|---|---|"
for n in "${active[@]}"; do
  ok=$((runs - ${fails[$n]:-0}))
  printf '| %s | %s | %d/%d | %s | %s | %s | %s | %s | %s |\n' "$n" "${version[$n]:-?}" "$ok" "$runs" \
    "${mt[$n]}" "$(echo "${times[$n]:-}" | range)" "${mm[$n]}" "$(echo "${mems[$n]:-}" | range)" \
    "$(ratio_num "${mt[$n]}" "$tt")" "$(ratio_num "${mm[$n]}" "$tm")"
done
echo
for n in "${active[@]}"; do
  [[ $n == tintwell ]] && continue
  echo "- $n / tintwell = $(ratio_words "${mt[$n]}" "$tt" slower faster), $(ratio_words "${mm[$n]}" "$tm" larger smaller)"
done
for n in "${active[@]}"; do
  [[ -n ${note[$n]:-} ]] && echo "- note, $n: ${note[$n]}"
done
exit 0
