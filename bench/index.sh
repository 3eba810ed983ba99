#!/usr/bin/env bash
# ./bench/index.sh [ROUNDS [FILE]]   measures korvo-index against scriptindex of xapian-omega, three minutes a round
#
# Both store the packages of a control file, or all that apt knows, with the same fields, terms and positions, in turns: once as words as they stand,
# once with stems and the words for corrections.  Installs what is missing from Debian's packages.
set -eu -o pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
rounds=${1-3}

need xapian-omega "${build_packages[@]}"
build release korvo-index
folder=$(mktemp -d "${TMPDIR:-/tmp}/korvo-bench.XXXXXX")
trap 'rm -rf "$folder"' EXIT

# Every field on one line, and what names the package in front.
if [ $# -gt 1 ]; then cat "$2"; else apt-cache dumpavail; fi | awk -v records="$folder/records" '
  function put() {
    if (!count) return
    print "Id: " id["Package"] " " id["Version"] " " id["Architecture"]
    print "Id=" id["Package"] " " id["Version"] " " id["Architecture"] >records
    for (i = 1; i <= count; i++) {
      print names[i] ": " values[i]
      print names[i] "=" values[i] >records
      known[names[i]] = 1
    }
    print ""
    print "" >records
    count = 0
    delete id
  }
  /^$/ { put(); next }
  /^[ \t]/ { sub(/^[ \t]+/, ""); if ($0 != ".") values[count] = values[count] " " $0; next }
  {
    at = index($0, ":")
    names[++count] = substr($0, 1, at - 1)
    gsub("-", "_", names[count])  # scriptindex takes no other
    values[count] = substr($0, at + 1)
    sub(/^[ \t]+/, "", values[count])
    id[names[count]] = values[count]
  }
  END {
    put()
    for (name in known) print name >(records ".names")
  }' >"$folder/packages"

# script SPELL: what scriptindex does with each field; the prefixes are those of korvo-index.
script() {
  echo "Id : unique=QID= boolean=QID= field${1:+ spell} index index=XID:"
  sort "$folder/records.names" | while read -r name; do
    echo "$name : field${1:+ spell} index index=X${name^^}:"
  done
}
script '' >"$folder/words.script"
script spell >"$folder/stems.script"
{
  echo '@language english'
  echo 'Id text id'
  sed 's/$/ text/' "$folder/records.names"
} >"$folder/schema"

# spent NAME COMMAND...: its processor time in milliseconds goes to $folder/NAME.
TIMEFORMAT='%U %S'
spent() {
  local name=$1
  shift
  { time "$@" >/dev/null 2>"$folder/errors"; } 2>"$folder/time" || {
    cat "$folder/errors" >&2
    exit 70
  }
  awk '{ printf "%d\n", 1000 * ($1 + $2) }' "$folder/time" >>"$folder/$name"
  rm -rf "$folder/db"
}

for _ in $(seq "$rounds"); do
  spent korvo.words build/release/bin/korvo-index --id Id --no-spelling "$folder/db" "$folder/packages"
  spent omega.words scriptindex --stemmer=none "$folder/db" "$folder/words.script" "$folder/records"
  spent korvo.stems build/release/bin/korvo-index --schema "$folder/schema" "$folder/db" "$folder/packages"
  spent omega.stems scriptindex "$folder/db" "$folder/stems.script" "$folder/records"
done

median() { sort -n "$folder/$1" | sed -n "$(((rounds + 1) / 2))p"; }

echo "$(grep -c '^Id: ' "$folder/packages") packages, $(stat -c %s "$folder/packages") bytes; processor seconds, medians of $rounds rounds"
echo
echo '| indexing | korvo-index | scriptindex | ratio |'
echo '|---|---:|---:|---:|'
for what in words stems; do
  awk -v what=$what -v ours="$(median korvo.$what)" -v theirs="$(median omega.$what)" 'BEGIN {
    printf "| %s | %.1f | %.1f | %.2f |\n", what == "words" ? "words as they stand" : "stems, corrections", ours / 1000, theirs / 1000, ours / theirs }'
done
