#!/usr/bin/env bash
# packaging/trial.sh PHASE   tries the packages in /packages on the Debian that it runs in; ../package.sh starts it there
#
# The phases are plain, for a Debian where no systemd runs, then prepare, faults and booted for one where it does; and
# daemon, for one with the package korvo alone.
set -eu -o pipefail
export PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive LC_ALL=C
log=/trial.log

fail() {
  echo "trial: $*" >&2
  tail -n 40 $log >&2 || true
  exit 1
}
step() { echo "trial: $*"; }

await() { # await COMMAND...: until it succeeds
  local tries
  for ((tries = 0; tries < 300; tries++)); do
    ! "$@" >>$log 2>&1 || return 0
    sleep 0.1
  done
  fail "never came: $*"
}

# by_readme: as the section Install of the README does it, where the packages were left.
by_readme() {
  local patterns
  patterns=$(sed -n 's/^ *apt install //p' /README.md)
  [ -n "$patterns" ] || fail 'the README installs nothing'
  cd /packages
  # shellcheck disable=SC2086  # its patterns
  install $patterns
  cd /
}
install() { apt-get install -y -qq --no-install-recommends "$@" >>$log 2>&1 </dev/null || fail "cannot install $*"; }

# group ID PORT PORT: a Search Manager and a Document Manager more.
group() {
  printf '%s %s 127.0.0.1 %s %s web1\n' "$1" S "$2" $(($2 + 1)) "$1" D "$3" $(($3 + 1)) >>/etc/korvo/korvo.conf
  echo "$1 packages /var/lib/korvo/packages.db /var/lib/korvo/packages.db" >>/etc/korvo/korvo.db
}

# configure: the service of the examples over this machine's list of packages, as an operator would edit it.
configure() {
  sed -i 's/^#packages/packages/' /etc/korvo/korvo.conf /etc/korvo/korvo.db
  group second 8031 8041
  sed -i 's/^group .*/group packages results document Debian packages/' /etc/korvo/korvo-web.conf
  korvo-index --schema /usr/share/doc/korvo/examples/packages.schema /var/lib/korvo/packages.db /var/lib/dpkg/status >>$log 2>&1 || fail 'korvo-index fails'
}

# Three questions to the service.
pings() { korvoctl ping --port "$1" --timeout 1 >>$log 2>&1; }
finds() { # finds GROUP: a page of hits, by a macro that the daemon has in its own place
  [[ $(korvo-query --port 8001 --group "$1" --macro package --max-hits 1 library 2>>$log) == *'libc6'* ]]
}
shows() { # shows: the same page in a browser
  exec 3<>/dev/tcp/127.0.0.1/8080 || return 1
  printf 'GET /search?q=library HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n' >&3
  grep -q 'libc6' <&3
} 2>/dev/null

all_answer() { finds packages && finds second && shows; }

# Without systemd: what its units say, carried out line by line.

unit_file() { # unit_file UNIT: where it, or its template, is installed
  ls "/lib/systemd/system/${1/@*./@.}"
}
lines() { # lines UNIT WORD: the commands behind it
  local id=${1#*@}
  sed -n "s/^$2=-\?//p" "$(unit_file "$1")" | sed "s/%i/${id%.service}/g"
}
as_korvo='setpriv --reuid korvo --regid korvo --clear-groups'

# view UNIT: shows files at the places of its BindReadOnlyPaths=.
view() {
  local pair
  while read -r pair; do
    mkdir -p "${pair#*:}"
    mountpoint -q "${pair#*:}" || mount --bind "${pair%:*}" "${pair#*:}"
  done < <(sed -n 's/^BindReadOnlyPaths=//p' "$(unit_file "$1")" | tr ' ' '\n' | grep : || true)
}

declare -A pids=()
export KORVO_PARENT=web1
run() { # run UNIT WORD: what stands behind it
  local command
  while read -r command; do eval "$as_korvo $command" >>$log 2>&1 </dev/null || fail "$1: $command"; done < <(lines "$1" "$2")
}
start() { # start UNIT...: at the same time, as systemd does it
  local unit command MAINPID
  for unit; do
    view "$unit"
    read -r command < <(lines "$unit" ExecStart)
    (eval "exec $as_korvo setsid $command" >>$log 2>&1 </dev/null) &
    pids[$unit]=$!
  done
  for unit; do
    MAINPID=${pids[$unit]}
    run "$unit" ExecStartPost
  done
}
stop() { # stop UNIT...: one behind the other
  local unit MAINPID
  for unit; do
    MAINPID=${pids[$unit]}
    run "$unit" ExecStop
    kill "$MAINPID" 2>/dev/null || true
    wait "$MAINPID" || fail "$unit ends with status $?"
    unset "pids[$unit]"
  done
}

# next PACKAGE: the same package as a later version, with another sample configuration.
next() {
  rm -rf /next && dpkg-deb -R /packages/"$1"_*.deb /next
  sed -i 's/^Version: .*/&.1/; s/\(= [0-9.+~]*\))/\1.1)/' /next/DEBIAN/control
  [ ! -e /next/DEBIAN/conffiles ] || while read -r conf; do echo '# New in this version.' >>"/next$conf"; done </next/DEBIAN/conffiles
  dpkg-deb --root-owner-group -b /next "/next_$1.deb" >>$log
}

left() { # left: what the service has left on the machine
  find / -xdev \( -path /proc -o -path /packages -o -path /sys \) -prune -o -iname '*korvo*' -print
  getent passwd korvo || true
  getent group korvo || true
  grep -l '^korvo' /proc/[0-9]*/comm 2>/dev/null || true
}
check_left() {
  local what
  what=$(left | grep -v '^/next' || true)
  [ -z "$what" ] || fail "purging leaves: $what"
}

# completes COMMAND WORD: bash offers the word behind it, where nothing ends the shell.
completes() (
  set +eu
  read -ra words <<<"$1"
  # shellcheck disable=SC1090
  . "/usr/share/bash-completion/completions/${words[0]}"
  COMP_WORDS=("${words[@]}" '') COMP_CWORD=${#words[@]} COMPREPLY=()
  "$(complete -p "${words[0]}" | sed -E 's/.* -F ([^ ]+) .*/\1/')" "${words[0]}" '' "${words[-1]}"
  [[ " ${COMPREPLY[*]} " == *" $2 "* ]]
)

plain() {
  step 'installing the daemon alone'
  apt-get update -qq >>$log 2>&1
  install /packages/korvo_*.deb
  start korvo-commmgr@web1.service
  pings 8002 || fail 'the daemon does not answer'
  stop korvo-commmgr@web1.service

  step 'installing the rest, starting and asking'
  install /packages/korvo-backends_*.deb /packages/korvo-web_*.deb
  configure
  for unit in korvo-commmgr:web1 korvo-searchmgr:packages korvo-docmgr:packages 'korvoctl ping:web1'; do
    completes "${unit%:*}" "${unit#*:}" || fail "bash offers no ${unit#*:} behind ${unit%:*}"
  done
  ! grep /usr/local/korvo /usr/share/bash-completion/completions/korvo* || fail 'bash looks where no package puts anything'
  /links.sh /usr/share/doc/korvo /usr/share/man || fail 'installed documents lead nowhere'
  local unit all
  mapfile -t all < <(korvoctl units | sed 's/\(\.service\)\?$/.service/')
  [ ${#all[@]} -eq 5 ] || fail "korvoctl gives other units than five: ${all[*]}"
  start "${all[@]}" korvo-web.service
  await all_answer
  korvoctl list >/list.log
  grep -q '^web1 C 127.0.0.1 8001 8002: PONG' /list.log || fail "korvoctl list shows: $(cat /list.log)"
  korvoctl log --explain </dev/null || fail 'korvoctl has no messages'
  stop "${all[@]}" korvo-web.service

  step 'upgrading'
  for unit in korvo korvo-backends korvo-web; do next $unit; done
  ! dpkg -i /next_korvo.deb /next_korvo-backends.deb /next_korvo-web.deb </dev/null >/asked.log 2>&1 || fail 'a changed configuration is not asked about'
  grep -q "Configuration file '/etc/korvo/korvo.conf'" /asked.log || fail "nothing asks about korvo.conf: $(cat /asked.log)"
  dpkg --configure -a --force-confold >>$log 2>&1 </dev/null || fail 'the upgrade fails'
  grep -q '^second' /etc/korvo/korvo.conf || fail 'the upgrade changes korvo.conf'
  [ -e /etc/korvo/korvo.conf.dpkg-dist ] || fail 'the new korvo.conf is nowhere'
  [ "$(dpkg-query -W -f '${Version}' korvo-web)" = "$(dpkg-deb -f /next_korvo-web.deb Version)" ] || fail 'korvo-web is not upgraded'

  step 'removing and purging'
  dpkg --remove korvo korvo-backends korvo-web >>$log 2>&1 || fail 'cannot remove'
  [ -e /etc/korvo/korvo.conf ] || fail 'removing takes the configuration away'
  [ -e /var/lib/korvo/packages.db ] || fail 'removing takes the databases away'
  umount -R /usr/local/korvo/lib && rmdir /usr/local/korvo/lib /usr/local/korvo
  dpkg --purge korvo korvo-backends korvo-web >>$log 2>&1 || fail 'cannot purge'
  check_left
}

# With systemd.

prepare() {
  step 'installing, to be found at the boot'
  apt-get update -qq >>$log 2>&1
  by_readme
  configure
  install iproute2  # for a machine that is gone
}

# held UNIT PORT: a connection that is open while the unit restarts has its answer.
held() {
  exec 4<>"/dev/tcp/127.0.0.1/$2"
  systemctl restart --no-block "$1"
  await is_stopping "$1"
  printf '\t@COMMAND=QUERY\t@SEARCHGROUP=packages\t@MACROFILE=package\t@MAXHITS=1\tlibrary\n' >&4
  grep -qE 'libc6|COMMAND=HIT' <&4 || fail "$1 cuts a connection that it has in hand"
  exec 4>&-
  await is_running "$1"
}
is_stopping() { [ "$(systemctl show -P ActiveState "$1")" = deactivating ]; }
is_running() { [ "$(systemctl show -P ActiveState "$1")" = active ]; }
is_gone() { ! systemctl is-active --quiet "$1"; }

# check_refused UNIT REASON: it does not start, nor again and again, and its status has the reason.
check_refused() {
  local status
  ! systemctl restart "$1" 2>>$log || fail "$1 starts with a wrong configuration"
  [ "$(systemctl show -P NRestarts -P SubState "$1" | paste -sd ' ')" = '0 failed' ] || fail "$1 goes on trying to start"
  status=$(systemctl status --full --no-pager "$1" || true)
  grep -q "$2" <<<"$status" || fail "systemctl status $1 does not say why: $status"
}

booted() {
  local unit old
  step 'everything runs after the boot'
  await all_answer
  for unit in korvo-commmgr@web1 korvo-searchmgr@packages korvo-searchmgr@second korvo-docmgr@packages korvo-web; do is_running $unit || fail "$unit does not run"; done

  step 'what is killed comes back, and all of it is whole again'
  for unit in korvo-commmgr@web1 korvo-searchmgr@packages korvo-searchmgr@second korvo-docmgr@packages korvo-web; do
    old=$(main_of "$unit")
    systemctl kill --signal KILL "$unit"
    await is_new "$unit" "$old"
    await all_answer
  done

  step 'connections in hand have their answer'
  await idle
  held korvo-commmgr@web1.service 8001
  await all_answer
  await idle
  held korvo-searchmgr@packages.service 8011
  await all_answer

  step 'a line that comes, and goes'
  group third 8051 8061
  systemctl restart korvo.target
  await finds third
  sed -i '/^third/d' /etc/korvo/korvo.conf
  systemctl restart korvo.target
  await is_gone korvo-searchmgr@third.service
  await all_answer

  step 'an address that comes late'
  cp /etc/korvo/korvo.conf /etc/korvo/korvo.conf.right
  sed -i 's/127\.0\.0\.1/192.0.2.7/' /etc/korvo/korvo.conf
  systemctl restart korvo.target
  await is_gone korvo-commmgr@web1.service
  await tells_of_no_program
  ip address add 192.0.2.7/32 dev lo
  await pings_late
  ip address delete 192.0.2.7/32 dev lo
  mv /etc/korvo/korvo.conf.right /etc/korvo/korvo.conf
  systemctl restart korvo.target
  await all_answer

  step 'an upgrade, of one package or of all, runs what it has brought'
  dpkg -i /packages/korvo-backends_*.deb >>$log 2>&1 </dev/null || fail 'cannot install korvo-backends again'
  await all_answer
  runs_no_old_file
  for unit in korvo korvo-backends korvo-web; do next $unit; done
  dpkg --force-confold -i /next_korvo.deb /next_korvo-backends.deb /next_korvo-web.deb >>$log 2>&1 </dev/null || fail 'the upgrade fails'
  await all_answer
  runs_no_old_file

  step 'a wrong configuration is refused with its reason'
  cp /etc/korvo/korvo.conf /etc/korvo/korvo.conf.right
  sed -i 's/^web1.*/web1 C 127.0.0.1 8001 99999 -/' /etc/korvo/korvo.conf
  check_refused korvo-commmgr@web1.service 'korvo.conf:[0-9]*: ADMINPORT 99999'
  cp /etc/korvo/korvo-web.conf /etc/korvo/korvo-web.conf.right
  echo 'listen-port high' >>/etc/korvo/korvo-web.conf
  check_refused korvo-web.service 'korvo-web.conf:[0-9]*: '
  mv /etc/korvo/korvo-web.conf.right /etc/korvo/korvo-web.conf
  mv /etc/korvo/korvo.conf.right /etc/korvo/korvo.conf
  systemctl restart korvo.target korvo-web
  await all_answer

  step 'the backends go while the daemon runs, and then all of it'
  dpkg --remove korvo-backends >>$log 2>&1
  is_gone korvo-searchmgr@packages.service || fail 'a manager without a package runs on'
  pings 8002 || fail 'the daemon went with the managers'
  dpkg --purge korvo-web korvo-backends korvo >>$log 2>&1 || fail 'cannot purge'
  check_left
}
tells_of_no_program() { journalctl --quiet --unit=korvo-units | grep 'units.sh: .*has no program of this machine'; }
pings_late() { korvoctl ping web1 --timeout 1 && korvoctl ping packages --timeout 1; }
# runs_no_old_file: each program is that of its package, of which dpkg makes a new file; korvo-web is no program of korvoctl.
runs_no_old_file() {
  local id
  for id in web1 packages second; do
    ! korvoctl status $id | grep 'file was replaced' || fail "$id still runs what it ran before the upgrade"
  done
  ! readlink "/proc/$(main_of korvo-web)/exe" | grep ' (deleted)$' || fail 'korvo-web still runs what it ran before the upgrade'
}
main_of() { systemctl show -P MainPID "$1"; }
is_new() { [ "$(main_of "$1")" != 0 ] && [ "$(main_of "$1")" != "$2" ]; } # is_new UNIT OLD
idle() { [ -z "$(systemctl list-jobs --no-legend)" ]; }

daemon() {
  step 'installing the daemon alone, and asking it'
  apt-get update -qq >>$log 2>&1
  install /packages/i386/korvo_*.deb
  file=$(dpkg --print-architecture)
  start korvo-commmgr@web1.service
  pings 8002 || fail 'the daemon does not answer'
  stop korvo-commmgr@web1.service
  umount -R /usr/local/korvo/lib && rmdir /usr/local/korvo/lib /usr/local/korvo
  dpkg --purge korvo >>$log 2>&1
  check_left
  step "the daemon of $file answers"
}

: >>$log
# shellcheck source=packaging/faults.sh
[ "$1" != faults ] || . /faults.sh
"$1"
