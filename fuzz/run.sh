#!/usr/bin/env bash
# make fuzz: runs every fuzz target of BUILD_DIR for SECONDS each, two at a
# time, against a copy of its committed corpus (fuzz/corpus/<target>/), so the
# repository is never written to. Fails when any target finds a crash, a leak,
# a timeout or a broken property; the input is then kept under
# BUILD_DIR/fuzz-run/<target>/findings/ and replayed once with its messages.
#   fuzz/run.sh [BUILD_DIR] [SECONDS]     FUZZ_JOBS=N runs N targets at a time
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build-fuzz}" && pwd)
seconds=${2:-60}
jobs=${FUZZ_JOBS:-2}
work=$build/fuzz-run
rm -rf "$work"
mkdir -p "$work"
if command -v llvm-symbolizer-14 >/dev/null; then
  export ASAN_SYMBOLIZER_PATH=$(command -v llvm-symbolizer-14)
fi

mapfile -t targets < "$build/fuzz/targets.txt"
[ "${#targets[@]}" -gt 0 ] || { echo "fuzz: no targets in $build/fuzz/targets.txt" >&2; exit 1; }

run_one() {
  local t=$1 dir=$work/$1
  mkdir -p "$dir/corpus" "$dir/findings"
  cp -r "$root/fuzz/corpus/$t/." "$dir/corpus/"
  # -close_fd_mask=3: the targets' own output (log lines, rejected-line
  # messages) is dropped; libFuzzer's report and the sanitizers' still show.
  "$build/fuzz/fuzz_$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -close_fd_mask=3 -print_final_stats=1 -artifact_prefix="$dir/findings/" \
    "$dir/corpus" >"$dir/log" 2>&1
  echo $? >"$dir/status"
}
export -f run_one
export root build seconds work

echo "fuzz: ${#targets[@]} targets, ${seconds} s each, $jobs at a time"
printf '%s\n' "${targets[@]}" | xargs -P "$jobs" -I{} bash -c 'run_one {}'

failed=0
printf '%-20s %-8s %8s %8s %10s %8s\n' target result cov ft exec/s inputs
for t in "${targets[@]}"; do
  dir=$work/$t
  status=$(cat "$dir/status" 2>/dev/null || echo missing)
  done_line=$(grep -E '^#[0-9]+[[:space:]]+DONE' "$dir/log" | tail -1)
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$done_line")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$done_line")
  execs=$(sed -n 's/.*exec\/s: \([0-9]*\).*/\1/p' <<<"$done_line")
  units=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/log")
  findings=$(find "$dir/findings" -type f | wc -l)
  result=ok
  if [ "$status" != 0 ] || [ "$findings" -gt 0 ]; then result=FOUND; failed=1; fi
  printf '%-20s %-8s %8s %8s %10s %8s\n' "$t" "$result" "${cov:--}" "${ft:--}" "${execs:--}" "${units:--}"
done

if [ "$failed" != 0 ]; then
  for t in "${targets[@]}"; do
    dir=$work/$t
    [ "$(cat "$dir/status" 2>/dev/null)" = 0 ] && [ -z "$(ls -A "$dir/findings")" ] && continue
    echo
    echo "==== $t: $dir/log (end)"
    tail -n 60 "$dir/log"
    for f in "$dir"/findings/*; do
      [ -f "$f" ] || continue
      echo "==== $t: replaying $f with the target's own messages"
      "$build/fuzz/fuzz_$t" -runs=1 "$f" 2>&1 | tail -n 40
    done
  done
  echo
  echo "fuzz: findings above. Fix each, add the input to fuzz/corpus/<target>/ and a named test under tests/." >&2
  exit 1
fi
echo "fuzz: no finding"
