#!/usr/bin/env bash
# Throughput of `tintwell convert` over all 16,777,216 8-bit colours, piped in
# and piped out. Prints the median of RUNS runs in colours per second.
# Usage: bench/convert_throughput.sh [BUILD_DIR] [RUNS]
set -euo pipefail
build=${1:-build}
runs=${2:-5}
input=$(mktemp)
trap 'rm -f "$input"' EXIT
"$build/bench/all_colors" > "$input"
lines=$(wc -l < "$input")
rates=()
for _ in $(seq "$runs"); do
  start=$(date +%s.%N)
  cat "$input" | "$build/tintwell" convert | cat > /dev/null
  end=$(date +%s.%N)
  rates+=("$(echo "$lines / ($end - $start)" | bc -l)")
done
median=$(printf '%s\n' "${rates[@]}" | sort -g | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}')
printf 'colours: %d  runs: %d  median: %.2f million colours/s\n' "$lines" "$runs" "$(echo "$median / 1000000" | bc -l)"
