#!/usr/bin/env bash
# tests/fuzz/run.sh SECONDS [TARGET...]   runs the fuzz targets for SECONDS each, two at a time
#
# From the root, after `cmake --preset fuzz && cmake --build --preset fuzz`.  A line per target: how many
# inputs were run, how much of the code they reach, how many findings there are.  What a target has learned
# is kept in build/fuzz/corpus, and its findings in build/fuzz/findings: run the target with one as its argument
# to see it again.  Exit status 1: there are findings.  FUZZ_BUILD names another build tree.
set -eu -o pipefail
cd "$(dirname "$0")/../.."
seconds=${1:?usage: tests/fuzz/run.sh SECONDS [TARGET...]}
shift
build=${FUZZ_BUILD:-build/fuzz}
targets=("$@")
[ $# -gt 0 ] || targets=($(ls tests/fuzz/corpus))
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# A run ends at its first finding.
run() {
  local target=$1 learned=$build/corpus/$1 log=$build/findings/$1.log failed=0
  mkdir -p "$learned"
  "$build/bin/fuzz_$target" -max_total_time="$seconds" -max_len=2048 -timeout=20 -rss_limit_mb=2048 \
    -print_final_stats=1 -dict="tests/fuzz/dict/$target.dict" -artifact_prefix="$build/findings/$target-" \
    "$learned" "tests/fuzz/corpus/$target" >/dev/null 2>"$log" || failed=1
  # A finding without an input, such as a target that does not start, is its log.
  local executions coverage findings
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  coverage=$(sed -n 's/^#.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -n1)
  findings=$(find "$build/findings" -name "$target-*" | wc -l)
  [ "$findings" -ge "$failed" ] || findings=$failed
  printf '%-10s executions %9s  coverage %5s  findings %s\n' \
    "$target" "${executions:-?}" "${coverage:-?}" "$findings"
  [ "$findings" -eq 0 ] || { echo "  see $log"; touch "$scratch/found"; }
}

mkdir -p "$build/findings"
for target in "${targets[@]}"; do
  [ -x "$build/bin/fuzz_$target" ] || { echo "$0: there is no $build/bin/fuzz_$target" >&2; exit 64; }
done
for target in "${targets[@]}"; do
  [ "$(jobs -rp | wc -l)" -lt 2 ] || wait -n
  TMPDIR=${scratch} run "$target" &
done
wait
[ ! -e "$scratch/found" ]
