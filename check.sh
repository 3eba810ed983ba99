#!/usr/bin/env bash
# ./check.sh        builds and runs every test, native and 32-bit, and fuzzes for a moment
# ./check.sh asan   the same under the address and undefined-behaviour sanitizers
# ./check.sh lint   looks for faults in the sources, scripts and manual pages without running them
# ./check.sh coverage   runs every test natively; fails if a line or an unexplained branch of the daemon or korvo-web never runs
# ./check.sh browser [CASE...]   uses the page of korvo-web in Chromium as a person would
# ./check.sh operation [CASE...] runs the examples of docs/examples/operation with the real programs
# ./check.sh scale  searches four engines and one database with the same documents, and four while they die and hang
# ./check.sh soak MINUTES   loads, signals and starves the daemon: its load lasts that long, the rest what it needs
# ./check.sh mutants N [SEED]   breaks the daemon or korvo-web in N places, one at a time; fails if the tests miss one unexplained
# ./check.sh macros N   holds what korvo-macro check says about N macros to the engine, under the sanitizers
# ./check.sh fuzz SECONDS   runs every fuzz target for that processor time; findings stay in build/fuzz/findings
#
# Installs what is missing from Debian's packages.
set -eu -o pipefail
cd "$(dirname "$0")"
. scripts/need.sh

can_build_m32() {
  [ "$(dpkg --print-architecture)" = amd64 ] || return 1
  (need g++-multilib) || return 1
  local probe
  probe=$(mktemp -d)
  echo 'int main() { return 0; }' >"$probe/probe.cpp"
  local can=0
  g++ -m32 "$probe/probe.cpp" -o "$probe/probe" 2>/dev/null && "$probe/probe" 2>/dev/null || can=1
  rm -rf "$probe"
  return $can
}

# build_m32 [TARGET...]: builds it where that can be done, and lets the soak hold the two word sizes against each other.
build_m32() {
  if can_build_m32; then
    build m32 "$@"
    export KORVO_COMMMGR_M32=$PWD/build/m32/bin/korvo-commmgr
  else
    echo "This machine cannot build or run 32-bit programs: the m32 tests are left out."
  fi
}

# Every fuzz target for a few seconds, where clang is or can be installed.
fuzz_briefly() {
  if (need clang libclang-rt-dev); then
    build fuzz
    tests/fuzz/run.sh 3
  else
    echo "This machine has no clang with libFuzzer: the fuzz targets run over their corpus alone."
  fi
}

# hold_macros N: a process a processor, each with seeds of its own.
hold_macros() {
  local share=$((($1 + $(nproc) - 1) / $(nproc))) first processes=() process failed=0
  for ((first = 1; first <= $1; first += share)); do
    KORVO_MACRO_SEED=$first KORVO_MACRO_CASES=$((first + share > $1 ? $1 - first + 1 : share)) \
      build/asan/bin/macro_check_test --gtest_brief=1 --gtest_filter='CheckProperty.*' &
    processes+=($!)
  done
  for process in "${processes[@]}"; do
    wait "$process" || failed=1
  done
  return $failed
}

run_tests() {
  echo "Testing $1"
  ctest --preset "$1" -j"$(($(nproc) * 2))"
}

case "${1-all}" in
  all)
    need "${build_packages[@]}"
    (need iproute2 nftables) || true  # or two tests would install them at the same time
    (need tshark) || echo "This machine has no tshark: the dissector is not tested."
    build_m32
    [ -z "${KORVO_COMMMGR_M32-}" ] || run_tests m32
    build release
    run_tests release
    [ -z "${KORVO_COMMMGR_M32-}" ] || tests/fuzz/word_sizes.sh build/release build/m32
    fuzz_briefly
    ;;
  asan)
    need "${build_packages[@]}"
    build asan
    run_tests asan
    ;;
  lint)
    scripts/lint.sh
    ;;
  coverage)
    need gcovr "${build_packages[@]}"
    build coverage
    tests/coverage/run.sh
    ;;
  browser)
    need "${build_packages[@]}"
    build release korvo-commmgr korvo-searchmgr korvo-docmgr korvo-engine korvo-index korvo-macro korvo-web korvoctl
    tests/browser/run.sh build/release "${@:2}"
    ;;
  operation)
    need openssl "${build_packages[@]}"
    build release korvo-commmgr korvo-searchmgr korvo-docmgr korvo-engine korvo-index korvo-macro korvo-query korvo-web korvoctl
    /usr/bin/python3 tests/operation/operation_test.py build/release "${@:2}"
    ;;
  scale)
    need "${build_packages[@]}"
    build release
    build/release/bin/scale_test
    ;;
  soak)
    if ! [[ ${2-} =~ ^[1-9][0-9]*$ ]]; then
      echo "$0: soak takes the minutes of load, as in ./check.sh soak 10" >&2
      exit 64
    fi
    need "${build_packages[@]}"
    build_m32 korvo-commmgr
    build release soak_test
    KORVO_SOAK_MINUTES=$2 build/release/bin/soak_test
    ;;
  mutants)
    need python3 "${build_packages[@]}"
    python3 -B tests/mutants/run.py "${@:2}"
    ;;
  macros)
    if ! [[ ${2-} =~ ^[1-9][0-9]*$ ]]; then
      echo "$0: macros takes how many, as in ./check.sh macros 100000" >&2
      exit 64
    fi
    need "${build_packages[@]}"
    build asan macro_check_test
    hold_macros "$2"
    ;;
  fuzz)
    if ! [[ ${2-} =~ ^[1-9][0-9]*$ ]]; then
      echo "$0: fuzz takes the seconds for each target, as in ./check.sh fuzz 60" >&2
      exit 64
    fi
    need clang libclang-rt-dev "${build_packages[@]}"
    build fuzz
    tests/fuzz/run.sh "$2"
    ;;
  *)
    echo "$0: unknown argument '$1'; use ./check.sh alone or with asan, lint, coverage, browser, operation, scale, soak MINUTES, mutants N, macros N or fuzz SECONDS" >&2
    exit 64
    ;;
esac
