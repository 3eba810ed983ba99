#!/usr/bin/env bash
# tests/fuzz/word_sizes.sh NATIVE M32 [CORPUS]   fails when an input gives other results in the one build than in the other
#
# From the root.  NATIVE and M32 are build trees with the fuzz targets as tests; CORPUS holds a folder of inputs for each,
# those that are committed where it is not given.  What links Xapian has no build of 32 bits, and is named.
set -eu -o pipefail
native=${1:?usage: tests/fuzz/word_sizes.sh NATIVE M32 [CORPUS]}
m32=${2:?usage: tests/fuzz/word_sizes.sh NATIVE M32 [CORPUS]}
corpus=${3-tests/fuzz/corpus}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# results BUILD TARGET OUTPUT: every input's name and what can be seen of it.
results() {
  KORVO_FUZZ_SHOW=1 TMPDIR=$scratch "$1/bin/corpus_$2" "$corpus/$2" >"$3" 2>"$3.errors" || {
    echo "$0: $1/bin/corpus_$2 failed on $(tail -n1 "$3"): $(tail -n1 "$3.errors")" >&2
    exit 70
  }
}

count=0
status=0
for folder in "$corpus"/*/; do
  target=$(basename "$folder")
  [ -x "$m32/bin/corpus_$target" ] || {
    echo "$target: only $1 has it"
    continue
  }
  results "$native" "$target" "$scratch/native"
  results "$m32" "$target" "$scratch/m32"
  count=$((count + $(find "$folder" -type f | wc -l)))
  cmp "$scratch/native" "$scratch/m32" >/dev/null && continue
  echo "$target: the two word sizes differ; the first lines that do:" >&2
  diff -a "$scratch/native" "$scratch/m32" | head -n 6 >&2 || true
  status=1
done
echo "$count inputs ran in both word sizes"
exit $status
