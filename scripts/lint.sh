#!/usr/bin/env bash
# scripts/lint.sh   looks for faults in the sources without running them
#
# .clang-tidy and .cppcheck say what is looked for in the product; the tests get cppcheck alone, for clang-tidy takes
# minutes over GoogleTest's headers.  GCC's -fanalyzer is not among them: in GCC 12 it knows no exceptions, no
# references and no string_view, and each of its 24 findings here was either a file that is kept open on purpose or a
# null that cannot be.
set -eu -o pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
need clang-tidy cppcheck mandoc shellcheck "${build_packages[@]}"

folders=(debug net protocol config macro core commmgr store index manager searchmgr docmgr engine web tools)

# One compile command a file: without the tests, which compile some of the product again.
cmake --preset lint >/dev/null

echo "shellcheck"
git ls-files '*.sh' .ci/run share/bash-completion/program 'share/bash-completion/completions/*' | xargs shellcheck -x

echo "mandoc"
tests/check_manuals.sh .

echo "cppcheck"
check() { # check ENABLED FOLDER...
  cppcheck --quiet --error-exitcode=1 --enable="$1" --std=c++20 --language=c++ --library=posix --library=googletest \
    --suppressions-list=.cppcheck -I. -j"$(nproc)" "${@:2}"
}
check warning,style,performance,portability "${folders[@]}"
check warning,portability tests

echo "clang-tidy"
git ls-files "${folders[@]/%//*.cpp}" | xargs -P"$(nproc)" -n1 clang-tidy -p build/lint --quiet 2>build/lint/clang-tidy.log || {
  grep -v ' generated\.$' build/lint/clang-tidy.log >&2
  exit 1
}
