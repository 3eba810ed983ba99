#!/usr/bin/env bash
# check_manuals.sh SOURCES   fails when mandoc finds fault with a manual page, or one leads to a page that is not there
set -eu -o pipefail
cd "$1/docs"
command -v mandoc >/dev/null || {
  echo "manuals: skipped, for mandoc is not installed (package mandoc)"
  exit 77
}
status=0

# Whether a page of another package is there depends on the machine, so mandoc's word on references does not count.
elsewhere='errno.3 omindex.1 scriptindex.1 xapian-progsrv.1'
# Those that still have faults.
faulty=''

for page in *.[1-8]; do
  while read -r _ name section _; do
    [ -e "$name.$section" ] || [[ " $elsewhere " == *" $name.$section "* ]] || {
      echo "manuals: $page leads to $name($section), which is not there" >&2
      status=1
    }
  done < <(grep -E '^(\.It )?\.?Xr ' "$page" | sed -E 's/^\.It //')
  [[ " $faulty " != *" $page "* ]] || continue
  # mandoc's status is that of its worst word.
  said=$(mandoc -T lint "$page" 2>/dev/null || true)
  said=$(grep -v 'referenced manual not found' <<<"$said" || true)
  [ -z "$said" ] || {
    echo "$said" >&2
    status=1
  }
done
exit $status
