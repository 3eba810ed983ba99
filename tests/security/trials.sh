#!/usr/bin/env bash
# tests/security/trials.sh SCRATCH [GROUP [NAME]]   the trials of fences.sh, or that one
#
# fences.sh starts it in namespaces of its own, and in that control group if it could make one.
# The commands are those of SECURITY.md: the indented block behind a comment <!-- NAME --> there is that fence.
set -eu -o pipefail
scratch=$1
group=${2-}
only=${3-}
page=/usr/local/korvo/lib/page  # that clients may name
private=/srv/private            # that they may not
export PATH=/usr/local/korvo/bin:/usr/sbin:/usr/bin:/sbin:/bin

fail() {
  tail -n 20 /run/*.log /var/log/*.log >&2 || true
  echo "fences: $1" >&2
  exit 1
}

# block NAME: the commands, or the lines of a file, that SECURITY.md shows under that name.
block() {
  awk -v mark="<!-- $1 -->" '$0 == mark { found = 1; next } found && /^[^ ]/ { exit } found { sub(/^    /, ""); print }' \
    /run/SECURITY.md | grep . || fail "SECURITY.md shows no '$1'"
}

# The copies take their places, and nothing of the machine can be written to any more.
enter() {
  mount --bind "$scratch/local" /usr/local
  mount --bind "$scratch/srv" /srv
  mount --bind "$scratch/etc" /etc
  mount -t tmpfs tmpfs /run
  cp "$scratch/SECURITY.md" "$scratch/firewall.nft" /run
  mount -t tmpfs tmpfs /var
  mkdir /var/lib /var/log /var/tmp
  mount -o remount,bind,ro /
  mount -t tmpfs tmpfs /tmp
}

# join NAME NETWORK ADDRESS: a machine NAME with that address in the network, one of the service's interfaces.
join() {
  ip netns add "$1"
  ip -n "$1" link add wire type veth peer name "$1" netns service
  ip -n service link set "$1" master "$2" up
  ip -n "$1" address add "$3/24" dev wire
  ip -n "$1" link set wire up
}

# The service at 192.0.2.1 inside and 198.51.100.1 outside, and who speaks to it.
build_networks() {
  ip netns add service
  ip -n service link set lo up
  ip -n service link add inside type bridge
  ip -n service address add 192.0.2.1/24 dev inside
  ip -n service link add outside type bridge
  ip -n service address add 198.51.100.1/24 dev outside
  ip -n service link set inside up
  ip -n service link set outside up
  join front_end inside 192.0.2.10
  join manager inside 192.0.2.20
  join operator inside 192.0.2.30
  join stranger outside 198.51.100.66
  ip -n stranger route add 192.0.2.0/24 via 198.51.100.1
  # The same stranger, who says that it is a manager.
  ip -n stranger address add 192.0.2.20/32 dev lo
  ip -n stranger rule add from 198.51.100.66 table main
}

at() { ip netns exec "$@"; }

# Two requests.  A page for which there is no manager is an error line of the daemon; a macro that it cannot open is none.
asks() { # asks MACHINE ADDRESS MACRO
  local answer
  answer=$(at "$1" korvo-query --host "$2" --port 8001 --group none --doc 1 --macro "$3" --timeout "$patience" 2>&1) || true
  [[ $answer == *'Unable to locate Document Server'* ]]
}
pings() { # pings MACHINE ADDRESS
  at "$1" korvoctl ping --host "$2" --port 8002 --timeout "$patience" >/dev/null 2>&1
}
user_pings() { # user_pings USER
  at service setpriv --reuid "$1" --clear-groups korvoctl ping --host 192.0.2.1 --port 8002 --timeout "$patience" >/dev/null 2>&1
}
# unit_starts MACHINE: what the installed units have korvoctl do there, as their user.
unit_starts() {
  at "$1" setpriv --reuid korvo --clear-groups korvoctl wait web1:C --timeout "$patience" >/dev/null 2>&1 &&
    at "$1" setpriv --reuid korvo --clear-groups korvoctl announce web1:C --macro $page --timeout "$patience" >/dev/null 2>&1
}
# The level that stands in the log shows whether the datagram counted; the PING behind it is carried out after it.
forges() {
  : >/run/daemon.log
  at stranger ip route replace 192.0.2.1 via 198.51.100.1 src 192.0.2.20
  at stranger korvoctl level WARNING --host 192.0.2.1 --port 8002
  at stranger ip route delete 192.0.2.1
  pings manager 192.0.2.1 || fail "the manager cannot ping"
  grep -q 'Global Debug Level Set to' /run/daemon.log
}
# shellcheck disable=SC2016  # the inner shell's
# sets MACHINE COMMAND: the level, by a datagram that begins so.
sets() {
  : >/run/daemon.log
  at "$1" bash -c 'printf "\t@COMMAND=%b\tDEBUGLEVEL=WARNING\n" "$1" >/dev/udp/192.0.2.1/8002' bash "$2"
  pings manager 192.0.2.1 || fail "the manager cannot ping"
  grep -q 'Global Debug Level Set to' /run/daemon.log
}
# shellcheck disable=SC2016  # the inner shell's
# announces MACHINE: a Search Manager of that name; the daemon knows it then, and cannot reach it.
announces() {
  local answer
  at "$1" bash -c 'printf "\t@COMMAND=STARTUPANNOUNCEMENT\tID=%s\tTYPE=S\tIP=192.0.2.1\tCLIENTPORT=1\tADMINPORT=1\n" "$1" >/dev/udp/192.0.2.1/8002' bash "$1$2"
  pings manager 192.0.2.1 || fail "the manager cannot ping"
  answer=$(at service korvo-query --host 192.0.2.1 --port 8001 --group "$1$2" --macro $page --timeout 20 x 2>&1) || true
  [[ $answer != *'Unable to locate SearchMgr'* ]]
}
# Holds 20 connections, makes one more, and lets them go.
holds_21() {
  at front_end bash -c '
    for i in {1..20}; do exec {held}<>/dev/tcp/192.0.2.1/8001; done
    exec {held}<>/dev/tcp/192.0.2.1/8001' 2>/dev/null
}

# What passes may take its time on a busy machine; what a fence drops never comes.
patience=1
passes() {
  patience=20
  "$@" || fail "does not pass: $*"
}
refused() {
  patience=1
  ! "$@" || fail "is not refused: $*"
}

await() {
  local tries
  for ((tries = 0; tries < 100; tries++)); do
    ! "$@" || return 0
    sleep 0.1
  done
  fail "never came: $*"
}

configure() { # configure LINE: of korvo.conf
  echo "$1" >/usr/local/korvo/etc/korvo.conf
}

start() { # start ADDRESS COMMAND...: runs it at the service until it answers there
  local address=$1
  shift
  at service "$@" >/dev/null 2>>/run/daemon.log &
  daemon=$!
  await pings service "$address"
}
stop() { # stop ADDRESS
  at service korvoctl shutdown --host "$1" --port 8002
  wait "$daemon"
}

try_loopback() {
  configure 'web1 C 192.0.2.1 8001 8002 -'
  start 192.0.2.1 korvo-commmgr web1
  passes asks front_end 192.0.2.1 $page
  passes asks stranger 192.0.2.1 $page  # an address is no fence
  refused asks stranger 198.51.100.1 $page
  stop 192.0.2.1
  configure "$(block loopback)"
  start 127.0.0.1 korvo-commmgr web1
  passes asks service 127.0.0.1 $page
  refused asks front_end 192.0.2.1 $page
  refused pings front_end 192.0.2.1
  refused asks stranger 192.0.2.1 $page
  stop 127.0.0.1
}

try_firewall() {
  (umask 077 && bash -c "$(block 'view prepare')")  # by an operator who shares nothing
  # One that answers is asked about: the daemon's admin port, under another name.
  configure $'web1 C 192.0.2.1 8001 8002 -\nagain S 192.0.2.1 1 8002 web1'
  start 192.0.2.1 korvo-commmgr web1
  passes asks stranger 192.0.2.1 $page
  passes pings stranger 192.0.2.1
  passes pings front_end 192.0.2.1
  passes asks manager 192.0.2.1 $page
  passes user_pings nobody
  passes forges
  passes holds_21
  local smuggled='PING\t@SEQNUM=1\t@COMMAND=SETDEBUGLEVEL' another='STARTUPANNOUNCEMENT\t@COMMAND=SETDEBUGLEVEL'
  passes sets stranger SETDEBUGLEVEL
  passes sets front_end "$smuggled"
  passes sets manager "$another"
  passes announces front_end 1
  passes unit_starts service
  passes unit_starts front_end

  cp /run/firewall.nft /etc/korvo.nft
  at service bash -c "$(block 'firewall load')"
  refused asks stranger 192.0.2.1 $page
  refused pings stranger 192.0.2.1
  refused user_pings nobody
  passes unit_starts service
  passes asks manager 192.0.2.1 $page
  passes unit_starts manager
  refused unit_starts operator  # it may do everything but ask
  passes pings front_end 192.0.2.1
  refused sets front_end SETDEBUGLEVEL
  refused sets front_end "$smuggled"
  refused announces front_end 2
  passes announces manager 2
  refused sets manager SETDEBUGLEVEL
  refused sets manager "$smuggled"
  refused sets manager "$another"
  passes sets operator SETDEBUGLEVEL
  refused sets stranger SETDEBUGLEVEL
  refused forges
  refused holds_21
  passes pings manager 192.0.2.1
  passes pings service 192.0.2.1
  passes asks service 192.0.2.1 $page
  await asks front_end 192.0.2.1 $page  # once the 20 are forgotten

  at service nft delete table inet korvo
  stop 192.0.2.1
}

# Whoever names a macro outside of the view gets nothing; the library is there, and the process is not root's.
sees_its_own_folder_alone() {
  passes asks front_end 192.0.2.1 $page
  passes asks front_end 192.0.2.1 page
  refused asks front_end 192.0.2.1 $private
}

try_view() {
  start 192.0.2.1 korvo-commmgr web1
  passes asks front_end 192.0.2.1 $private
  stop 192.0.2.1
  [ -n "$(getent passwd korvo)" ] || (umask 077 && bash -c "$(block 'view prepare')")
  start 192.0.2.1 bash -c "$(block view)"
  sees_its_own_folder_alone
  [ "$(runs_as)" = "$(id -u korvo)" ] || fail "the daemon runs as user $(runs_as)"
  stop 192.0.2.1
}

runs_as() { ps -C korvo-commmgr -o uid= | sort -u | tr -d ' '; }

# A systemd that knows no unit but those that the service asks for.
start_systemd() {
  mount -t tmpfs tmpfs /usr/lib/systemd/system
  mount -t tmpfs tmpfs /usr/lib/systemd/system-generators
  rm -rf /etc/systemd/system /etc/fstab
  mkdir -p /etc/systemd/system
  local target
  for target in trial sysinit basic shutdown network-online multi-user; do
    printf '[Unit]\nDescription=%s\nDefaultDependencies=no\n' $target >/usr/lib/systemd/system/$target.target
  done
  # shellcheck disable=SC2016  # the inner shell's
  at service unshare --pid --mount --cgroup --fork --kill-child --mount-proc --propagation private bash -c '
    mount -t tmpfs tmpfs /run
    umount -R /sys/fs/cgroup 2>/dev/null || true
    mount -t cgroup2 none /sys/fs/cgroup
    exec env -i container=fences PATH="$PATH" /lib/systemd/systemd --system --unit=trial.target' >/run/systemd.log 2>&1 &
  await find_systemd
}
find_systemd() {
  systemd=$(ps -C systemd -o pid= | tail -n1 | tr -d ' ')
  [ -n "$systemd" ] && nsenter --target "$systemd" --all systemctl is-system-running >/dev/null 2>&1
}

try_unit() {
  start_systemd
  block unit >/etc/systemd/system/korvo-commmgr.service
  nsenter --target "$systemd" --all bash -e -c "$(block 'unit start')"
  await pings service 192.0.2.1
  sees_its_own_folder_alone
  [ "$(runs_as)" -ge 61184 ] || fail "the daemon runs as user $(runs_as)"  # the least of systemd's dynamic users
  refused asks stranger 192.0.2.1 $page
  refused pings stranger 192.0.2.1
  nsenter --target "$systemd" --all systemctl stop korvo-commmgr
  refused pings service 192.0.2.1
}

# trial NAME
trial() {
  [ -z "$only" ] || [ "$only" = "$1" ] || return 0
  "try_$1"
  echo "fences: the $1 holds"
}

enter
build_networks
trial loopback
trial firewall
trial view
if [ -x /lib/systemd/systemd ] && [ -n "$group" ]; then
  trial unit
else
  echo "fences: the unit was not tried, for there is no systemd here, or no control group for it"
fi
