#!/usr/bin/env bash
# packaging/faults.sh   breaks the installed service in one way after the other and fails where no tool says what is wrong, or
#                       where it is not whole again within five seconds of a restart; trial.sh reads it for the phase faults
#
# Leaves the tables of what was said, and of the restarts, in /faults.md.
log=/trial.log  # that of trial.sh
table=/faults.md
kept=/etc/korvo.kept

fault() { # fault NAME: what is broken from here on
  current=$1
  step "fault: $1"
}

# says TOOL PATTERN COMMAND...: the command comes to say a line of that pattern, whatever its status; a row of the table.
says() {
  local tool=$1 pattern=$2 tries said line
  shift 2
  for ((tries = 0; tries < 300; tries++)); do
    said=$("$@" 2>&1) || true
    if line=$(grep -m1 -E "$pattern" <<<"$said"); then
      line=$(sed -E 's/^ +//; s/\r$//; s/[|`]/ /g; s/^[A-Z][a-z]{2} [0-9]{2} [0-9:]{8} [^ ]+ //' <<<"$line")
      printf '| %s | %s | \x60%s\x60 |\n' "$current" "$tool" "$line" >>$table
      current=
      return
    fi
    sleep 0.1
  done
  fail "$tool does not say '$pattern' but: $said"
}
journal_says() { says journalctl "$2" journalctl --no-pager --quiet --unit="$1"; }
explained() { # explained UNIT TEXT: the messages with that text in the journal of the unit, with cause and remedy
  journalctl --quiet --output=cat --unit="$1" --lines=200 | korvoctl log --explain |
    TEXT=$2 awk 'index($0, ENVIRON["TEXT"]) { shown = 1 } shown { print } /^ +remedy:/ { shown = 0 }'
}
ask() { # ask PATH: status and body of a page
  exec 5<>/dev/tcp/127.0.0.1/8080 || return 1
  printf 'GET %s HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n' "$1" >&5
  cat <&5
  exec 5>&-
}

whole() { await everything; }
everything() { finds packages && finds second && finds sharded && shows; }

# As before the fault.
mend() {
  cp -a $kept/. /etc/korvo
  systemctl restart korvo.target korvo-web
  whole
}

# occupy PORT TYPE: another program has the port, until the fault is mended.
occupy() {
  perl -MIO::Socket::INET -e '
    my $s = IO::Socket::INET->new(LocalAddr => "127.0.0.1:$ARGV[0]", ReuseAddr => 1, Proto => $ARGV[1], $ARGV[1] eq "tcp" ? (Listen => 5) : ())
      or die "$!";
    sleep 600' "$1" "$2" >>$log 2>&1 </dev/null &
  occupant=$!
  await is_taken "$1" "$2"
}
is_taken() { grep -q ":$(printf %04X "$1") .* 0[7A] " "/proc/net/$2"; }
has_restarted() { [ "$(systemctl show -P NRestarts "$1")" -ge "$2" ]; } # has_restarted UNIT TIMES
vacate() {
  kill "$occupant"
  wait "$occupant" || true
}

lay_out_faults() {
  printf '%s\n' 'sharded S 127.0.0.1 8061 8062 web1' 'sharded D 127.0.0.1 8065 8066 web1' 'half1 E 127.0.0.1 8071 8072 sharded' >>/etc/korvo/korvo.conf
  printf '%s\n' 'sharded packages - -' 'half1 packages /var/lib/korvo/packages.db /var/lib/korvo/packages.db' >>/etc/korvo/korvo.db
  mkdir -p /etc/korvo/macros
  cp -a /etc/korvo $kept
  systemctl restart korvo.target
  whole
  printf '%s\n' '| fault | tool | says |' '|---|---|---|' >$table
}

ports_are_taken() {
  local times
  fault 'another program has the client port'
  systemctl stop korvo-commmgr@web1
  occupy 8001 tcp
  systemctl start --no-block korvo-commmgr@web1
  for times in 4 8 12; do await has_restarted korvo-commmgr@web1 $times; done
  says 'korvoctl status web1' 'log, .*Unable to bind socket' korvoctl status web1
  says 'korvoctl log --explain' 'remedy: ' explained korvo-commmgr@web1 'Unable to bind socket'
  vacate
  whole  # by itself
  fault 'another program has the admin port'
  systemctl stop korvo-commmgr@web1
  occupy 8002 udp
  systemctl start --no-block korvo-commmgr@web1
  says 'korvoctl status web1' 'process [0-9]+, perl' korvoctl status web1 --timeout 1
  vacate
  mend
  fault 'another program has the port of korvo-web'
  systemctl stop korvo-web
  occupy 8080 tcp
  systemctl start --no-block korvo-web
  journal_says korvo-web 'korvo-web: .*(8080|Address already in use)'
  vacate
  mend
}

files_are_wrong() {
  fault 'a wrong line in korvo.conf'
  sed -i 's/^web1.*/web1 C 127.0.0.1 8001 99999 -/' /etc/korvo/korvo.conf
  says 'korvoctl check' 'korvo.conf:[0-9]+: ADMINPORT' korvoctl check
  systemctl restart --no-block korvo-commmgr@web1
  says 'systemctl status' 'korvo.conf:[0-9]+: ADMINPORT' systemctl status --full --no-pager korvo-commmgr@web1
  says 'korvoctl status web1' 'check: .*ADMINPORT' korvoctl status web1 --timeout 1
  mend
  fault 'no newline behind the last line of korvo.conf'
  truncate -s -1 /etc/korvo/korvo.conf
  says 'korvoctl check' 'does not end in a newline' korvoctl check
  mend
  fault 'the parent is missing in korvo.conf'
  sed -i '/^web1/d' /etc/korvo/korvo.conf
  says 'korvoctl check' 'no Communications Manager web1' korvoctl check
  says 'korvoctl list' 'its parent web1 is missing' korvoctl list --timeout 1
  mend
  fault 'korvo.conf belongs to another user'
  chmod 600 /etc/korvo/korvo.conf
  systemctl restart --no-block korvo-commmgr@web1
  journal_says korvo-commmgr@web1 'korvo.conf.*Permission denied'
  chmod 644 /etc/korvo/korvo.conf
  mend
  fault 'the line of korvo.db is missing'
  sed -i '/^packages/d' /etc/korvo/korvo.db
  says 'korvoctl check' 'no line has the id of packages:S' korvoctl check
  systemctl restart korvo-searchmgr@packages
  journal_says korvo-searchmgr@packages 'no line has the id of packages:S'
  mend
}

databases_are_wrong() {
  fault 'the database is gone'
  mv /var/lib/korvo/packages.db /var/lib/korvo/away.db
  says 'korvoctl check' 'SEARCHLOC .*cannot be read: No such file' korvoctl check
  systemctl restart korvo-searchmgr@packages
  journal_says korvo-searchmgr@packages 'SEARCHLOC .*cannot be read'
  says 'korvo-query' 'No part of the documents' korvo-query --port 8001 --group packages --macro package library
  says 'a page of korvo-web' 'could not carry this out' ask '/search?q=library'
  mv /var/lib/korvo/away.db /var/lib/korvo/packages.db
  whole
  fault 'the database belongs to another user'
  chmod 700 /var/lib/korvo/packages.db
  chown -R root: /var/lib/korvo/packages.db
  systemctl restart korvo-searchmgr@packages
  journal_says korvo-searchmgr@packages 'SEARCHLOC .*Permission denied'
  chown -R korvo: /var/lib/korvo/packages.db
  chmod 755 /var/lib/korvo/packages.db
  mend
  fault 'the database is cut short'
  cp -a /var/lib/korvo/packages.db /var/lib/korvo/whole.db
  truncate -s 4096 /var/lib/korvo/packages.db/postlist.glass
  systemctl restart korvo-searchmgr@packages
  finds packages || true
  says 'korvoctl status packages:S' "log, .*Unable to read '/var/lib/korvo/packages.db'" korvoctl status packages:S
  rm -r /var/lib/korvo/packages.db
  mv /var/lib/korvo/whole.db /var/lib/korvo/packages.db
  mend
}

pages_are_wrong() {
  fault 'the page macro is missing'
  says 'korvo-query' 'korvo-query: ' korvo-query --port 8001 --group packages --macro nosuch library
  says 'korvoctl status web1' 'log, .*Unable to open Macro nosuch' korvoctl status web1
  says 'korvoctl log --explain' 'remedy: ' explained korvo-commmgr@web1 'Unable to open Macro'
  fault 'a page frame is too long'
  head -c 20000 /dev/zero | tr '\0' x >/etc/korvo/macros/long.hdr
  says 'korvoctl check' 'has 20000 characters' korvoctl check
  rm /etc/korvo/macros/long.hdr
}

programs_fail() {
  fault 'the engine is killed'
  systemctl kill --signal KILL korvo-engine@half1
  says 'journalctl' 'Main process exited, code=killed' journalctl --unit korvo-engine@half1
  whole
  fault 'the engine is stopped'
  systemctl stop korvo-engine@half1
  says 'korvoctl list' 'half1 E .*Connection refused' korvoctl list
  says 'korvoctl status half1' 'unit .*ActiveState=inactive' korvoctl status half1
  korvoctl restart half1 >>$log 2>&1 || fail 'korvoctl restart starts no engine that is down'
  whole
  fault 'the Search Manager hangs'
  systemctl kill --signal STOP korvo-searchmgr@packages
  says 'korvoctl list' 'packages S .*no answer' korvoctl list --timeout 1
  says 'korvoctl status packages:S' 'no answer' korvoctl status packages:S --timeout 1
  says 'korvo-query' 'no answer|in time' korvo-query --port 8001 --group packages --macro package --timeout 2 library
  systemctl kill --signal CONT korvo-searchmgr@packages
  whole
  fault 'the daemon hangs'
  systemctl kill --signal STOP korvo-commmgr@web1
  says '/healthz' '^HTTP/1.1 503' ask /healthz
  says 'korvoctl status web1' 'no answer' korvoctl status web1 --timeout 1
  systemctl kill --signal CONT korvo-commmgr@web1
  whole
  fault 'the daemon is gone'
  korvoctl stop web1 >>$log 2>&1 || fail 'korvoctl stop fails'
  says '/healthz' '^HTTP/1.1 503' ask /healthz
  says 'korvoctl status web1' 'unit .*ActiveState=inactive' korvoctl status web1
  korvoctl restart web1 >>$log 2>&1 || fail 'korvoctl restart starts no daemon that is down'
  whole
  fault 'the file of the daemon was replaced'
  cp -a /usr/sbin/korvo-commmgr /usr/sbin/korvo-commmgr.new
  mv /usr/sbin/korvo-commmgr.new /usr/sbin/korvo-commmgr
  says 'korvoctl status web1' 'file was replaced' korvoctl status web1
  korvoctl restart web1 >>$log 2>&1 || fail 'korvoctl restart fails'
  ! korvoctl status web1 | grep 'was replaced' || fail 'the old file runs on'
  says 'korvoctl status web1' 'told by korvoctl of ' korvoctl status web1
  whole
}

means_run_out() {
  fault 'no descriptors are left'
  prlimit --pid "$(main_of korvo-commmgr@web1)" --nofile=5:5
  finds packages || true
  says 'korvoctl status web1' 'log, .*Sock_Accept' korvoctl status web1
  says 'korvoctl log --explain' 'remedy: ' explained korvo-commmgr@web1 'Unable to accept new connection'
  systemctl restart korvo-commmgr@web1
  whole
  fault 'the disk is full under the log of korvo-web'
  mount -t tmpfs -o size=8k,mode=755,uid="$(id -u korvo)" tmpfs /var/log/korvo
  sed -i '$a log /var/log/korvo/web.log' /etc/korvo/korvo-web.conf
  systemctl restart korvo-web
  for _ in {1..200}; do ask / >/dev/null || fail 'korvo-web does not answer'; done
  journal_says korvo-web 'cannot write to the log .*No space left'
  cp $kept/korvo-web.conf /etc/korvo
  systemctl restart korvo-web
  umount /var/log/korvo
  whole
  fault 'the disk is full under the log of the daemon'
  mkdir -p /var/log/full
  mount -t tmpfs -o size=4k tmpfs /var/log/full
  mkdir -p /etc/systemd/system/korvo-commmgr@web1.service.d
  printf '[Service]\nStandardError=append:/var/log/full/log\n' >/etc/systemd/system/korvo-commmgr@web1.service.d/log.conf
  systemctl daemon-reload
  systemctl restart korvo-commmgr@web1
  whole
  for _ in {1..20}; do korvo-query --port 8001 --group packages --macro nosuch library >>$log 2>&1 || true; done
  says 'df' '100% /var/log/full' df /var/log/full
  says 'korvoctl ping web1' 'PONG' korvoctl ping web1
  rm -r /etc/systemd/system/korvo-commmgr@web1.service.d/log.conf
  systemctl daemon-reload
  systemctl restart korvo-commmgr@web1
  umount /var/log/full
  whole
}

# A machine of its own for an engine, with a wire between the two.
a_machine_is_gone() {
  fault 'the machine of an engine is gone'
  unshare --net sleep 600 &
  local far=$!
  await is_apart $far
  ip link add wire type veth peer name wire netns $far
  ip address add 192.0.2.1/24 dev wire
  ip link set wire up
  nsenter --target $far --net sh -c 'ip address add 192.0.2.2/24 dev wire; ip link set wire up; ip link set lo up'
  echo 'far E 192.0.2.2 8071 8072 sharded' >>/etc/korvo/korvo.conf
  echo 'far packages /var/lib/korvo/packages.db /var/lib/korvo/packages.db' >>/etc/korvo/korvo.db
  # The managers are asked over the loopback, where the far engine cannot announce itself: korvoctl speaks for it.
  # shellcheck disable=SC2086,SC2154  # the words of trial.sh
  nsenter --target $far --net $as_korvo korvo-engine far /etc/korvo >>$log 2>&1 </dev/null &
  local engine=$!
  systemctl restart korvo.target
  await pings_far
  korvoctl announce sharded >>$log 2>&1
  whole
  ip link set wire down
  says 'korvoctl list' 'far E .*(no answer|unreachable)' korvoctl list --timeout 1
  await finds sharded
  says 'korvoctl status sharded:S' "log, .*Unable to read 'far'" korvoctl status sharded:S
  kill $engine
  wait $engine || true
  kill $far
  ip link delete wire 2>/dev/null || true
  mend
}
is_apart() { [ "$(readlink "/proc/$1/ns/net")" != "$(readlink /proc/self/ns/net)" ]; }
pings_far() { korvoctl ping far --timeout 1 >>$log 2>&1; }

# The restarts.

# load GROUP: 20 queries a second until the file /stop is there; a line of /load each: when it began, whether it was whole.
load() {
  local begin=${EPOCHREALTIME/./} count=0 left
  while [ ! -e /stop ]; do
    query "$1" &
    count=$((count + 1))
    left=$((begin + count * 50000 - ${EPOCHREALTIME/./}))
    [ $left -le 0 ] || sleep "0.$(printf %06d $left)"
  done
  wait
}
query() { # query GROUP: of the daemon, or by the web
  local begin=${EPOCHREALTIME/./} port=8001 text='' result=failed
  local line="\t@COMMAND=QUERY\t@SEARCHGROUP=$1\t@MACROFILE=package\t@MAXHITS=1\tlibrary\n"
  if [ "$1" = web ]; then
    port=8080
    line='GET /search?q=library HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n'
  fi
  if exec 6<>/dev/tcp/127.0.0.1/$port; then
    printf '%b' "$line" >&6
    text=$(timeout 20 cat <&6)
  fi 2>/dev/null
  [[ $text != *libc6* ]] || result=whole
  echo "$begin $result ${EPOCHREALTIME/./}" >>/load
}

# restarted NAME GROUP HOW COMMAND...: under that load; a row with what failed and how long until none did.
restarted() {
  local name=$1 group=$2 how=$3 at line all failed early last
  shift 3
  rm -f /stop /load
  await idle
  load "$group" >>$log 2>&1 &
  sleep 2
  at=${EPOCHREALTIME/./}
  "$@" >>$log 2>&1 || fail "cannot: $*"
  sleep 12
  touch /stop
  wait $!
  line=$(awk -v at="$at" '
    { all++ }
    $2 != "whole" { failed++; if ($3 < at) early++; if ($1 - at > last) last = $1 - at }
    END { printf "%d %d %d %.2f\n", all, failed, early, failed ? last / 1e6 + 0.05 : 0 }' /load)
  read -r all failed early last <<<"$line"
  printf '| %s | %s | %d | %d | %s s |\n' "$name" "$how" "$all" "$failed" "$last" >>$table
  [ "$all" -gt 100 ] || fail "there was no load: $line"
  [ "$early" -eq 0 ] || fail "queries failed before $name was touched: $line"
  awk -v last="$last" 'BEGIN { exit last > 5 }' || fail "$name is whole after $last s alone, $how"
  whole
}

restarts() {
  local unit
  printf '\n%s\n%s\n' '| program | how | queries | failed | whole after |' '|---|---|---|---|---|' >>$table
  for unit in korvo-commmgr@web1 korvo-searchmgr@sharded korvo-docmgr@sharded korvo-engine@half1 korvo-web; do
    step "$unit under load"
    group=sharded
    [ $unit != korvo-web ] || group=web
    restarted "\`$unit\`" $group restarted systemctl restart $unit
    restarted "\`$unit\`" $group killed systemctl kill --signal KILL $unit
  done
  a_machine_is_silent
  unit=korvo-commmgr@web1
  restarted "\`$unit\`, a machine silent" sharded restarted systemctl restart $unit
  restarted "\`$unit\`, a machine silent" sharded killed systemctl kill --signal KILL $unit
  ip link delete silent
  mend
}

# Programs of a machine that drops what it is sent, without a word.
a_machine_is_silent() {
  step 'a machine that says nothing'
  ip link add silent type veth peer name nowhere
  ip address add 192.0.2.8/24 dev silent
  ip link set silent up
  ip link set nowhere up
  ip neighbour add 192.0.2.9 lladdr 02:00:00:00:00:09 dev silent
  printf '%s\n' 'silent S 192.0.2.9 8081 8082 web1' 'silent D 192.0.2.9 8085 8086 web1' >>/etc/korvo/korvo.conf
  systemctl restart korvo.target
  whole
  await is_silent
}
is_silent() { korvoctl list --timeout 1 | grep 'silent S .*no answer'; }

faults() {
  lay_out_faults
  ports_are_taken
  files_are_wrong
  databases_are_wrong
  pages_are_wrong
  programs_fail
  means_run_out
  a_machine_is_gone
  restarts
  step 'as it was before the faults'
  sed -i '/^sharded/d; /^half1/d' /etc/korvo/korvo.conf /etc/korvo/korvo.db
  rm -rf $kept /etc/korvo/macros
  systemctl restart korvo.target
  await all_answer
}
