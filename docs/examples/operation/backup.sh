#!/bin/sh
# backup.sh DATABASE COPY   copies a database of korvo-index as it stands after its last commit
#
# Needs xapian-compact of the package xapian-tools.  Documents keep their numbers.  The database may be searched and written to meanwhile.  COPY is replaced
# at the end, by one rename of a link, so that it is whole at any time; it is moved into the place of a lost DATABASE, and
# the managers and engines find it there by themselves:
#
#     cp -rL COPY DATABASE.new && mv -T DATABASE.new DATABASE
set -eu
[ $# -eq 2 ] || {
  echo "usage: backup.sh DATABASE COPY" >&2
  exit 64
}
database=$1 copy=$2
new=$copy.$(date +%Y%m%d%H%M%S).$$
tries=10
until xapian-compact --no-renumber "$database" "$new" >"$copy.log" 2>&1; do
  # It was written to twice while it was read; an indexer that commits all the time has to pause for a copy.
  rm -rf "$new"
  tries=$((tries - 1))
  [ $tries -gt 0 ] || {
    cat "$copy.log" >&2
    echo "backup.sh: cannot copy $database" >&2
    exit 75
  }
  sleep 1
done
rm -f "$copy.log"
old=$(readlink "$copy" || true)
ln -s "$(basename "$new")" "$copy.link"
mv -T "$copy.link" "$copy"
[ -z "$old" ] || rm -rf "$(dirname "$copy")/${old:?}"
