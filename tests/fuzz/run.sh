#!/usr/bin/env bash
# tests/fuzz/run.sh SECONDS [TARGET...]   runs each fuzz target for SECONDS of processor time, two at a time
#
# From the root, after `cmake --preset fuzz && cmake --build --preset fuzz`.  A line per target: the
# processor time, how many inputs were run, how much of the code they reach, how many findings there are.  What a target has learned
# is kept in build/fuzz/corpus, and its findings in build/fuzz/findings: run the target with one as its argument
# to see it again.  Exit status 1: there are findings.  FUZZ_BUILD names another build tree.
set -eu -o pipefail
export LC_ALL=C  # where seconds are written with a comma, awk would lose their fractions
cd "$(dirname "$0")/../.."
wanted=$((1000 * ${1:?usage: tests/fuzz/run.sh SECONDS [TARGET...]}))  # milliseconds
shift
build=${FUZZ_BUILD:-build/fuzz}
targets=("$@")
[ $# -gt 0 ] || mapfile -t targets < <(ls tests/fuzz/corpus)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

TIMEFORMAT='%U %S'

# fuzz TARGET SECONDS: one run of the fuzzer by the clock, ended by its first finding; adds to the target's log
# and prints the processor time in milliseconds.
fuzz() {
  local target=$1 learned=$build/corpus/$1 log=$build/findings/$1.log status=0
  {
    time "$build/bin/fuzz_$target" -max_total_time="$2" -max_len=2048 -timeout=20 -rss_limit_mb=2048 \
      -print_final_stats=1 -dict="tests/fuzz/dict/$target.dict" -artifact_prefix="$build/findings/$target-" \
      "$learned" "tests/fuzz/corpus/$target" >/dev/null 2>>"$log" || status=1
  } 2>"$scratch/$target.time"
  awk '{ printf "%d\n", 1000 * ($1 + $2) }' "$scratch/$target.time"
  return $status
}

# The fuzzer knows the clock alone: a target that waits, or shares its core, runs again for what it lacks.
run() {
  local target=$1 log=$build/findings/$1.log used=0 once failed=0
  mkdir -p "$build/corpus/$target"
  : >"$log"
  while [ "$used" -lt "$wanted" ] && [ "$failed" -eq 0 ]; do
    once=$(fuzz "$target" $(((wanted - used + 999) / 1000))) || failed=1
    used=$((used + once))
  done
  # A finding without an input, such as a target that does not start, is its log.
  local executions coverage findings
  executions=$(awk '/^stat::number_of_executed_units:/ { sum += $2 } END { print sum + 0 }' "$log")
  coverage=$(sed -n 's/^#.* cov: \([0-9]*\) .*/\1/p' "$log" | sort -n | tail -n1)
  findings=$(find "$build/findings" -name "$target-*" | wc -l)
  [ "$findings" -ge "$failed" ] || findings=$failed
  printf '%-10s processor %5s s  executions %9s  coverage %5s  findings %s\n' \
    "$target" $((used / 1000)) "$executions" "${coverage:-?}" "$findings"
  [ "$findings" -eq 0 ] || { echo "  see $log"; touch "$scratch/found"; }
}

mkdir -p "$build/findings"
for target in "${targets[@]}"; do
  [ -x "$build/bin/fuzz_$target" ] || { echo "$0: there is no $build/bin/fuzz_$target" >&2; exit 64; }
done
for target in "${targets[@]}"; do
  [ "$(jobs -rp | wc -l)" -lt 2 ] || wait -n
  TMPDIR=$scratch run "$target" &
done
wait
[ ! -e "$scratch/found" ]
