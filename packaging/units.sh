#!/bin/sh
# units.sh: starts the programs that korvo.conf gives this machine, and stops those that it no longer does; fails when there
#           are none
#
# A parent that restarts has its children restart too, which it then announces to itself.  They start before it, so that
# they stop after it: what it has in hand still needs them.
set -eu
umask 022
conf=/etc/korvo
system=/run/systemd/system
units=$(korvoctl units --dir "$conf")

# parent UNIT: the PARENTID of its line in korvo.conf; of several lines the first counts.
parent() {
  case $1 in
    korvo-searchmgr@*) type=S ;;
    korvo-docmgr@*) type=D ;;
    korvo-engine@*) type=E ;;
    *) return 0 ;;
  esac
  id=${1#*@}
  awk -v id="${id%.service}" -v type="$type" '$1 == id && $2 == type { print $6; exit }' "$conf/korvo.conf"
}

# parents UNIT ID: those of that id which run on this machine.
parents() {
  case $1 in
    korvo-engine@*) set -- "korvo-searchmgr@$2" "korvo-docmgr@$2" ;;
    *) set -- "korvo-commmgr@$2" ;;
  esac
  for unit; do
    for here in $units; do
      [ "${here%.service}" != "$unit" ] || echo "$unit.service"
    done
  done
}

# bind UNIT: makes it a part of its parents, which take it along when they stop, and bring it when they start.
bind() {
  id=$(parent "$1")
  [ -n "$id" ] || return 0
  above=$(parents "$1" "$id" | tr '\n' ' ')
  mkdir -p "$system/$1.d"
  printf '[Unit]\nPartOf=%s\nBefore=%s\n[Service]\nEnvironment=KORVO_PARENT=%s\n' "$above" "$above" "$id" \
    >>"$system/$1.d/korvo-units.conf"
  for higher in $above; do
    mkdir -p "$system/$higher.d"
    printf '[Unit]\nWants=%s\n' "$1" >>"$system/$higher.d/korvo-units.conf"
  done
}

rm -f "$system"/korvo-*@*.service.d/korvo-units.conf
wanted=
for unit in $units; do
  unit=${unit%.service}.service
  bind "$unit"
  wanted="$wanted $unit"
done
mkdir -p "$system/korvo.target.d"
printf '[Unit]\nWants=%s\n' "$wanted" >"$system/korvo.target.d/korvo-units.conf"
systemctl daemon-reload

for unit in $(systemctl list-units --all --plain --no-legend 'korvo-*@*.service' | awk '{ print $1 }'); do
  case "$wanted " in *" $unit "*) ;; *) systemctl stop --no-block "$unit" ;; esac
done
[ -n "$wanted" ] || {
  echo "units.sh: $conf/korvo.conf has no program of this machine, which may get its address later" >&2
  exit 1
}
# shellcheck disable=SC2086  # a word each
systemctl start --no-block $wanted
