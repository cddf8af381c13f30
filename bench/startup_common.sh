# shellcheck shell=bash
# Pieces shared by bench/startup_compare.sh and bench/startup_phases.sh, which
# source this file (both run under set -euo pipefail).

# build_floors SOURCES DIR: the empty Qt 6 window and the window with only the
# panel's texts, from their sources in SOURCES, built into DIR with g++, so
# that no CMake tree is needed.
build_floors() {
  local floor
  for floor in bare_qt_window text_qt_window; do
    # shellcheck disable=SC2046 # pkg-config's words are meant to split
    g++ -O2 -std=c++17 -fPIC -o "$2/$floor" "$1/$floor.cpp" \
      $(pkg-config --cflags --libs Qt6Widgets)
  done
}

# start_xvfb LOG: a private Xvfb (1024x768x24, -noreset) on the first free
# display from :71, its output in LOG; sets display and xvfb_pid, or exits.
start_xvfb() {
  local d i
  for ((d = 71; d < 200; d++)); do
    [[ -e /tmp/.X$d-lock || -e /tmp/.X11-unix/X$d ]] && continue
    Xvfb ":$d" -screen 0 1024x768x24 -noreset -nolisten tcp > "$1" 2>&1 &
    xvfb_pid=$!
    for ((i = 0; i < 100; i++)); do
      [[ -e /tmp/.X11-unix/X$d ]] && break
      kill -0 "$xvfb_pid" 2> /dev/null || break
      sleep 0.05
    done
    if [[ -e /tmp/.X11-unix/X$d ]] && kill -0 "$xvfb_pid" 2> /dev/null; then
      # shellcheck disable=SC2034 # the sourcing script's
      display=":$d"
      return 0
    fi
    kill "$xvfb_pid" 2> /dev/null || true
    wait "$xvfb_pid" 2> /dev/null || true
    xvfb_pid=""
  done
  echo "could not start Xvfb" >&2
  exit 1
}

# fresh_run WORK SETTINGS: a fresh home for one timed start, under WORK, with
# its XDG directories (the runtime one mode 700) and, when SETTINGS is not
# empty, SETTINGS (printf %b) as the panel's settings file. Sets run_home, and
# run_env: the whole environment of the start, for env -i, so that no per-user
# cache (fontconfig, icon, settings) helps one program more than another; the
# session bus off, the system bus nowhere (no Bluetooth), the panel's
# telemetry off the network, X through xcb.
fresh_run() {
  run_home=$(mktemp -d "$1/home.XXXXXX")
  mkdir -p "$run_home/config" "$run_home/data" "$run_home/cache" "$run_home/runtime"
  chmod 700 "$run_home/runtime"
  if [[ -n $2 ]]; then
    mkdir -p "$run_home/config/Orlo"
    printf '%b' "$2" > "$run_home/config/Orlo/Tintwell.conf"
  fi
  # shellcheck disable=SC2034 # the sourcing script's
  run_env=(PATH=/usr/local/bin:/usr/bin:/bin LANG=C.UTF-8 DISPLAY="$display"
    HOME="$run_home" XDG_CONFIG_HOME="$run_home/config" XDG_DATA_HOME="$run_home/data"
    XDG_CACHE_HOME="$run_home/cache" XDG_RUNTIME_DIR="$run_home/runtime"
    DBUS_SESSION_BUS_ADDRESS=disabled: DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent
    TINTWELL_TELEMETRY_URL=https://127.0.0.1:9 QT_QPA_PLATFORM=xcb)
}

# shuffled WORD...: the words one per line in a random order. Each round of
# runs takes its programs in a new order: with a fixed order, a program always
# starts right after the same one, and a start is several milliseconds slower
# or faster depending on which program went just before (two copies of one
# binary, always second and third after the empty window, from exec to the
# map request over 41 rounds: 40.7 and 33.7 ms;
# shuffled: 33.0 and 33.4 ms).
shuffled() { printf '%s\n' "$@" | shuf; }

# median: of the numbers on standard input, blank-separated ("NA" left out);
# "NA" when there are none.
median() { tr ' ' '\n' | grep -v '^$' | grep -v NA | sort -g | awk '{a[NR]=$1} END {if (NR == 0) print "NA"; else if (NR % 2) print a[(NR+1)/2]; else printf "%.1f\n", (a[NR/2]+a[NR/2+1])/2}'; }

# ratio_num A B: A / B to two decimals, "n/a" when either is "NA" or B is not
# above 0.
ratio_num() { awk -v o="$1" -v t="$2" 'BEGIN { if (o == "NA" || t == "NA" || t <= 0) print "n/a"; else printf "%.2f\n", o / t }'; }
