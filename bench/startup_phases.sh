#!/usr/bin/env bash
# Where the start-up goes: for tintwell's panel, the empty Qt 6 window and the
# window with only the panel's texts (the floors of bench/startup_compare.sh),
# the time from exec to the end of dynamic loading (every library mapped and
# relocated, the program's own code about to run) and to the request that maps
# the first window. Marks come from bench/startup_marks.c (a launcher and an
# LD_PRELOAD library), so the programs run unchanged, and the figures carry
# none of startup_compare.sh's fixed costs (its fork, the server's MapNotify
# and the stop watch's wake-up, about the same few milliseconds for every
# program, which bring its ratios closer to 1).
#
# Usage: bench/startup_phases.sh [TINTWELL_BINARY]
#   TINTWELL_BINARY  default $BUILD/tintwell, BUILD defaulting to build
#   RUNS=N           runs per program, interleaved in rounds, each round in a
#                    random order (default 15)
#
# Every run as in startup_compare.sh: a fresh home and XDG directories, the
# session bus off, the system bus pointing nowhere, tintwell with history and
# the tray icon on, one private Xvfb (1024x768x24); the program is ended
# at the first half-second check after its map mark (or after 10 s without one).
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=bench/startup_common.sh
. "$here/startup_common.sh"
tintwell=${1:-${BUILD:-build}/tintwell}
runs=${RUNS:-15}
[[ -x $tintwell ]] || {
  echo "no tintwell binary at $tintwell (give its path as the argument)" >&2
  exit 1
}
tintwell=$(cd "$(dirname "$tintwell")" && pwd)/$(basename "$tintwell")
for tool in Xvfb gcc g++ pkg-config; do
  command -v "$tool" > /dev/null || {
    echo "missing: $tool (apt-get install xvfb g++ pkg-config qt6-base-dev)" >&2
    exit 1
  }
done

work=$(mktemp -d /tmp/startup_phases.XXXXXX)
xvfb_pid=""
# shellcheck disable=SC2317 # reached through the trap
cleanup() {
  [[ -n $xvfb_pid ]] && kill "$xvfb_pid" 2> /dev/null && wait "$xvfb_pid" 2> /dev/null
  rm -rf "$work"
}
trap cleanup EXIT

build_floors "$here" "$work"
gcc -O2 -DSTARTUP_MARKS_LAUNCHER -o "$work/launch" "$here/startup_marks.c"
gcc -O2 -shared -fPIC -o "$work/marks.so" "$here/startup_marks.c" -ldl

start_xvfb /dev/null

names=(bare_qt_window text_qt_window tintwell)
declare -A cmd=([bare_qt_window]=$work/bare_qt_window [text_qt_window]=$work/text_qt_window
  [tintwell]=$tintwell)
declare -A loaded mapped

# One run of program $1: appends its two figures to loaded[$1] and mapped[$1].
run_once() {
  local n=$1 home log pid i l="" m=""
  fresh_run "$work" '[history]\nenabled=true\n[tray]\nshow=true\n'
  home=$run_home
  log=$home/log
  setsid env -i "${run_env[@]}" STARTUP_MARKS_LIBRARY="$work/marks.so" \
    "$work/launch" "${cmd[$n]}" > /dev/null 2> "$log" &
  pid=$!
  # Checked every half second only, so that the check takes no processor time
  # from the start it times (a start takes tens of milliseconds).
  for ((i = 0; i < 20; i++)); do
    sleep 0.5
    grep -q '^mark map ' "$log" && break
  done
  kill -TERM -- "-$pid" 2> /dev/null || true
  sleep 0.2
  kill -KILL -- "-$pid" 2> /dev/null || true
  wait "$pid" 2> /dev/null || true
  read -r l m < <(awk '$1 == "mark" && !($2 in t) { t[$2] = $3 }
    END { if (("exec" in t) && ("loaded" in t) && ("map" in t))
            printf "%.2f %.2f\n", t["loaded"] - t["exec"], t["map"] - t["exec"] }' "$log")
  rm -rf "$home"
  if [[ -z ${m:-} ]]; then
    echo "  $n: no map mark" >&2
    return 1
  fi
  loaded[$n]+="$l "
  mapped[$n]+="$m "
  printf 'run %-15s loaded %6s ms  map %6s ms\n' "$n" "$l" "$m" >&2
}

for n in "${names[@]}"; do run_once "$n" || true; done # warm-up, not counted
loaded=() mapped=()
for ((r = 1; r <= runs; r++)); do
  for n in $(shuffled "${names[@]}"); do run_once "$n" || true; done
done

echo
echo "Exec to the end of loading and to the first window's map request; $runs runs each, medians."
echo "Machine: $(lscpu | sed -n 's/^Model name: *//p' | head -1), $(nproc) CPUs; $(date -u '+%Y-%m-%d %H:%M UTC')"
echo
echo "| program | loaded (ms) | map (ms) | map / empty window's |"
echo "|---|---|---|---|"
floor=$(echo "${mapped[bare_qt_window]:-}" | median)
for n in "${names[@]}"; do
  m=$(echo "${mapped[$n]:-}" | median)
  printf '| %s | %s | %s | %s |\n' "$n" "$(echo "${loaded[$n]:-}" | median)" "$m" \
    "$(ratio_num "$m" "$floor")"
done
