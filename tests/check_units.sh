#!/usr/bin/env bash
# check_units.sh   fails when systemd finds a fault in a unit of packaging/systemd or of the examples, or when a stranger could
#                  do more with one of the former than has to be
set -eu -o pipefail
cd "$(dirname "$0")/.."
command -v systemd-analyze >/dev/null || {
  echo 'units: skipped, for there is no systemd-analyze here (package systemd)'
  exit 77
}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
status=0
worst=15  # exposure, in tenths

# A root with the units, the programs that they name and the units that belong to every machine.
mkdir -p "$scratch/usr/lib/systemd/system"
cp packaging/systemd/* docs/examples/operation/*.service "$scratch/usr/lib/systemd/system"
for name in basic sysinit shutdown multi-user network-online network; do
  printf '[Unit]\nDescription=%s\nDefaultDependencies=no\n' $name >"$scratch/usr/lib/systemd/system/$name.target"
done
sed -n 's/^Exec[A-Za-z]*=-\?\(\/[^ ]*\).*/\1/p' "$scratch"/usr/lib/systemd/system/*.service | sort -u | while read -r name; do
  install -D -m 755 /dev/null "$scratch$name"
done

for unit in packaging/systemd/* docs/examples/operation/*.service; do
  name=$(basename "$unit")
  name=${name/@./@any.}  # one of a template
  systemd-analyze verify --root="$scratch" --man=no --recursive-errors=one "$name" >"$scratch/log" 2>&1 || status=1
  [ ! -s "$scratch/log" ] || { status=1; sed "s/^/units: $name: /" "$scratch/log" >&2; }
  [[ $unit == packaging/*.service ]] || continue  # an example starts a tool alone
  systemd-analyze security --offline=true --root="$scratch" --threshold=$worst --no-pager "$name" >"$scratch/log" 2>&1 || {
    status=1
    cat "$scratch/log" >&2
  }
  tail -n1 "$scratch/log"
done
exit $status
