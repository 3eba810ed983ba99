#!/usr/bin/env bash
# ./check.sh        builds and runs every test, native and 32-bit; ends with the count
# ./check.sh asan   the same under the address and undefined-behaviour sanitizers
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

run_tests() {
  echo "Testing $1"
  ctest --preset "$1" -j"$(($(nproc) * 2))"
}

case "${1-all}" in
  all)
    need "${build_packages[@]}"
    if can_build_m32; then
      build m32
      run_tests m32
    else
      echo "This machine cannot build or run 32-bit programs: the m32 tests are left out."
    fi
    build release
    run_tests release
    ;;
  asan)
    need "${build_packages[@]}"
    build asan
    run_tests asan
    ;;
  fuzz)
    if ! [[ ${2-} =~ ^[1-9][0-9]*$ ]]; then
      echo "$0: fuzz takes the seconds for each target, as in ./check.sh fuzz 60" >&2
      exit 64
    fi
    need clang libclang-rt-14-dev "${build_packages[@]}"
    build fuzz
    tests/fuzz/run.sh "$2"
    ;;
  *)
    echo "$0: unknown argument '$1'; use ./check.sh, ./check.sh asan or ./check.sh fuzz SECONDS" >&2
    exit 64
    ;;
esac
