#!/usr/bin/env bash
# tests/coverage/run.sh   runs every test and says what of the daemon and of korvo-web never ran; see check.py
#
# From the root, after `cmake --preset coverage && cmake --build --preset coverage`.  The counts are those of
# this run alone; the page of gcovr about them is build/coverage/report.txt.
set -eu -o pipefail
cd "$(dirname "$0")/../.."
build=build/coverage
[ -d "$build" ] || { echo "$0: there is no $build; build the preset coverage first" >&2; exit 64; }

# What the build no longer makes would be taken for code that never runs.
find "$build" -name '*.gcno' | while read -r notes; do
  [ -e "${notes%.gcno}.o" ] || rm "$notes"
done
find "$build" -name '*.gcda' -delete
: >"$build/counters.log"
ctest --preset coverage -j"$(($(nproc) * 2))" >"$build/tests.log" || {
  tail -n40 "$build/tests.log" >&2
  echo "$0: a test fails, see $build/tests.log" >&2
  exit 1
}

# Processes write their counters when their test is over; see hand_over.cpp.
flock "$build/counters.log" true
if [ -s "$build/counters.log" ]; then
  cat "$build/counters.log" >&2
  echo "$0: counts are lost, see $build/counters.log" >&2
  exit 70
fi

# The compiler lays no branch for what is thrown (coverage.cmake), so gcovr has none to leave out.
gcovr --root . "$build" --filter '(commmgr|config|core|debug|macro|net|protocol|web)/' \
  --json "$build/report.json" --txt "$build/report.txt"
tests/coverage/check.py "$build/report.json" tests/coverage/uncovered.txt
