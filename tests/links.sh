#!/usr/bin/env bash
# links.sh DOCUMENTS [MANUALS]   fails when an installed document leads to a file that is not there, or a manual page to one of
#                                this system that is not
set -eu -o pipefail
shopt -s nullglob
status=0
missing() {
  echo "links: $1 leads to $2, which is missing" >&2
  status=1
}

mapfile -t documents < <(find "$1" -name '*.md')
for document in "${documents[@]}"; do
  while read -r link; do
    [ -e "$(dirname "$document")/$link" ] || missing "$document" "$link"
  done < <(grep -o '](\([^):]*\))' "$document" | sed 's/^](//; s/[#)].*//; /^$/d')
done
[ ${#documents[@]} -gt 0 ] || {
  echo "links: there is no document in $1" >&2
  status=1
}

for page in "${2:-/nowhere}"/man?/korvo*; do
  while read -r name section; do
    [ -n "$(echo "$2/man$section/$name.$section"*)" ] || missing "$page" "$name($section)"
  done < <(zcat -f "$page" | sed -n 's/^\.Xr \(korvo[^ ]*\) \([0-9]\).*/\1 \2/p')
done
exit $status
