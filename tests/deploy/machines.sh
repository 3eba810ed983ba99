#!/usr/bin/env bash
# tests/deploy/machines.sh SCRATCH   the services of deploy.sh, which starts it in namespaces of its own
#
# A comment of the manual page with a path names the display that follows.
set -eu -o pipefail
scratch=$1
home=/usr/local/korvo
export PATH=$home/bin:/usr/sbin:/usr/bin:/sbin:/bin
export KORVO_WORKERS=2  # eight engines have a process for each

fail() {
  tail -n 20 /run/*.log >&2 || true
  echo "deploy: $1" >&2
  exit 1
}
step() { echo "deploy: $1"; }

await() { # await COMMAND...: until it succeeds
  local tries
  for ((tries = 0; tries < 600; tries++)); do
    ! "$@" >/run/await.log 2>&1 || return 0
    sleep 0.1
  done
  fail "never came: $*"
}

# file NAME: what the manual page shows under it.
file() {
  awk -v mark=".\\\\\" $1" '$0 == mark { found = 1 } found && /^\.Ed/ { exit } shown { print } found && /^\.Bd/ { shown = 1 }' \
    "$scratch/korvo-deploy.7" | grep . || fail "the manual page has no $1"
}
# commands SECTION: the lines and the quoted words that start a program, in their order.
commands() {
  awk -v section=".Sh $1" '/^\.Sh/ { in_it = $0 == section } in_it' "$scratch/korvo-deploy.7" |
    sed -nE 's/^\.Ql (korvo-[a-z]+( [^ ,;.]+)*)( [,;.])?$/\1/p; t; /^korvo-[a-z]+( [^ ]+){0,2}$/p'
}

# machine ADDRESS: a network namespace of that name, with a wire to the others.
machine() {
  [ ! -e "/run/netns/$1" ] || return 0
  ip netns add "$1"
  ip -n "$1" link set lo up
  ip -n "$1" link add wire type veth peer name "v${1##*.}" netns "$hub"
  ip -n "$1" address add "$1/24" dev wire
  ip -n "$1" link set wire up
  ip -n "$hub" link set "v${1##*.}" master bridge up
}
at() { ip netns exec "$@"; }
leave() { ip -n "$1" link set wire down; }
come_back() { ip -n "$1" link set wire up; }

# address ID TYPE FILE: where the line of korvo.conf says.
address() {
  local where
  where=$(awk -v id="$1" -v type="$2" '$1 == id && $2 == type { print $3; exit }' "$3")
  [ "$where" = 127.0.0.1 ] && echo 192.0.2.1 || echo "$where"
}
type_of() {
  case $1 in korvo-commmgr) echo C ;; korvo-searchmgr) echo S ;; korvo-docmgr) echo D ;; *) echo E ;; esac
}

# start COMMAND ID [DIR]: as the manual page has it, on the machine of its line, until it answers.
start() {
  local type where
  type=$(type_of "$1")
  where=$(address "$2" "$type" "${3-$home/etc}/korvo.conf")
  at "$where" "$@" >>"/run/$1.$2.log" 2>&1 </dev/null & disown
  await at "$where" korvoctl ping "$2:$type" --dir "${3-$home/etc}" --timeout 1
}
start_web() { # start_web ADDRESS [FILE]
  at "$1" korvo-web "${@:2}" >>/run/web.log 2>&1 </dev/null & disown
}

# page MACHINE ADDRESS QUERY: its status and body.
page() { at "$1" curl -s -m 20 -w '%{http_code}' "http://$2:8080/search?q=$3"; }
finds() { # finds MACHINE ADDRESS PACKAGE...: each is found
  local name
  for name in "${@:3}"; do [[ $(page "$1" "$2" "$name") == *">$name"*200 ]] || return 1; done
}
says_a_part_is_missing() { [[ $(page "$1" "$2" "$3") == *'could not be searched'* ]]; }
says_no_part_is_missing() { ! says_a_part_is_missing "$@"; }
status_is() { [[ $(page "$1" "$2" a) == *"$3" ]]; }

index() { # index PATH NAME...: a database of packages with those names
  local name
  mkdir -p /srv/korvo
  for name in "${@:2}"; do printf 'Package: %s\nDescription: a %s\n\n' "$name" "$name"; done >/run/packages
  korvo-index --schema "$scratch/packages.schema" "$1" /run/packages >/dev/null 2>/run/index.log
}

reset() { # everything ends, and nothing is left of it
  local one pid
  for one in $(ip netns list | awk '{ print $1 }'); do
    for pid in $(ip netns pids "$one"); do kill -KILL "$pid" 2>/dev/null || true; done
    ip netns delete "$one"
  done
  rm -rf "${home:?}"/etc/* /srv/korvo
  hub=hub
  ip netns add $hub
  ip -n $hub link add bridge type bridge
  ip -n $hub link set bridge up
}

one_machine() {
  reset
  machine 192.0.2.1
  for name in korvo.conf korvo.db korvo-web.conf; do file one/$name >"$home/etc/$name"; done
  index /srv/korvo/packages first second
  local command
  mapfile -t all < <(commands 'ONE MACHINE')
  [ ${#all[@]} -eq 4 ] || fail "one machine has other commands: ${all[*]}"
  for command in "${all[@]}"; do
    # shellcheck disable=SC2086  # its words
    if [ "$command" = korvo-web ]; then start_web 192.0.2.1; else start $command; fi
  done
  await finds 192.0.2.1 127.0.0.1 first second
  korvo_index_anew
  await finds 192.0.2.1 127.0.0.1 third
  step 'one machine does what it should'
}
# A database that is indexed anew is moved into the place of the old one.
korvo_index_anew() {
  index /srv/korvo/new third
  mv /srv/korvo/packages /srv/korvo/old
  mv /srv/korvo/new /srv/korvo/packages
}

three_machines() {
  reset
  local number command
  for number in 1 2 3; do machine "192.0.2.$number"; done
  for name in korvo.conf korvo.db korvo-web.conf; do file three/$name >"$home/etc/$name"; done
  index /srv/korvo/half1 first
  index /srv/korvo/half2 second
  mapfile -t all < <(commands 'THREE MACHINES')
  [ ${#all[@]} -eq 6 ] || fail "three machines have other commands: ${all[*]}"
  for command in "${all[@]}"; do
    # shellcheck disable=SC2086  # its words
    if [ "$command" = korvo-web ]; then start_web 192.0.2.1; else start $command; fi
  done
  await finds 192.0.2.1 127.0.0.1 first second
  leave 192.0.2.3
  await says_a_part_is_missing 192.0.2.1 127.0.0.1 first
  finds 192.0.2.1 127.0.0.1 first || fail 'the half that is there is not found'
  come_back 192.0.2.3
  await finds 192.0.2.1 127.0.0.1 first second
  step 'three machines do what they should'
}

# Over the three machines: a Search Manager more on the second, and its example of a unit on the first.
standby() {
  local first watch
  mkdir "$home/etc/standby"
  cp "$home/etc/korvo.db" "$home/etc/standby"
  sed '/^packages  *S/d' "$home/etc/korvo.conf" >"$home/etc/standby/rest"
  { file standby/korvo.conf && cat "$home/etc/standby/rest"; } >"$home/etc/standby/korvo.conf"
  file standby/korvo.conf | sed -n 1p >>"$home/etc/korvo.conf"
  first=$(of_machine 192.0.2.1 korvo-searchmgr)
  start korvo-searchmgr packages "$home/etc/standby"
  read -ra watch < <(sed -n "s|^ExecStart=/usr/bin/||; s|/etc/korvo|$home/etc|; s|--macro package|--macro $home/share/korvo/web/results|; /^korvoctl/p" "$scratch/korvo-watch.service")
  at 192.0.2.1 "${watch[@]}" >>/run/watch.log 2>&1 </dev/null & disown
  await watches
  at 192.0.2.1 korvoctl announce web1 >>/run/watch.log
  at 192.0.2.1 korvoctl ping web1 >>/run/watch.log  # behind what was announced
  kill -KILL "$(of_machine 192.0.2.2 korvo-searchmgr)"
  finds 192.0.2.1 127.0.0.1 first || fail 'the first was not given its place back'
  start korvo-searchmgr packages "$home/etc/standby"
  at 192.0.2.1 korvoctl announce web1 >>/run/watch.log
  kill -KILL "$first"
  await finds 192.0.2.1 127.0.0.1 first second
  start korvo-searchmgr packages
  await comes_back
  kill -KILL "$(of_machine 192.0.2.2 korvo-searchmgr)"
  await finds 192.0.2.1 127.0.0.1 first second
  step 'a standby does what it should'
}
of_machine() { # of_machine ADDRESS PROGRAM: its main process, the oldest
  local pid
  for pid in $(ip netns pids "$1" | sort -n); do
    [ "$(cat "/proc/$pid/comm")" != "${2:0:15}" ] || { echo "$pid"; return; }
  done
}
watches() { grep -q 'announced packages:D' /run/watch.log; }
comes_back() { [[ $(grep 'announced packages:S ' /run/watch.log | tail -n1) == *' 192.0.2.1/8012 to '* ]]; }

twenty_machines() {
  reset
  local number tree id type
  for ((number = 1; number <= 20; number++)); do machine "192.0.2.$number"; done
  for ((number = 1; number <= 8; number++)); do index "$(printf /srv/korvo/shard%02d "$number")" "name$number"; done
  # The machines share a disk: each has the files of its tree in a directory of their own.
  for tree in east west; do
    mkdir "$home/etc/$tree"
    file twenty/$tree/korvo.conf >"$home/etc/$tree/korvo.conf"
    file twenty/$tree/korvo-web.conf >"$home/etc/$tree/korvo-web.conf"
    file twenty/korvo.db >"$home/etc/$tree/korvo.db"
    while read -r id type _; do
      case $type in C) start korvo-commmgr "$id" "$home/etc/$tree" ;; S) start korvo-searchmgr "$id" "$home/etc/$tree" ;;
        D) start korvo-docmgr "$id" "$home/etc/$tree" ;; E) start korvo-engine "$id" "$home/etc/$tree" ;; esac
    done < <(grep -v '^#' "$home/etc/$tree/korvo.conf")
  done
  start_web 192.0.2.1 "$home/etc/east/korvo-web.conf"
  start_web 192.0.2.11 "$home/etc/west/korvo-web.conf"
  await finds 192.0.2.1 192.0.2.1 name1 name8
  await finds 192.0.2.11 192.0.2.11 name1 name8
  for number in 1 11; do await says_no_part_is_missing "192.0.2.$number" "192.0.2.$number" name1; done
  leave 192.0.2.20  # a shard: its tree searches the other seven, and pages say so
  await says_a_part_is_missing 192.0.2.11 192.0.2.11 name1
  finds 192.0.2.11 192.0.2.11 name1 name7 || fail 'seven shards are not found'
  finds 192.0.2.1 192.0.2.1 name1 name8 || fail 'the other tree misses it too'
  says_no_part_is_missing 192.0.2.1 192.0.2.1 name1 || fail 'the other tree says that it misses it'
  come_back 192.0.2.20
  await finds 192.0.2.11 192.0.2.11 name8
  leave 192.0.2.2  # the managers of a tree: its searches fail, and the other's do not
  await not_found 192.0.2.1
  at 192.0.2.1 curl -sf http://192.0.2.1:8080/healthz >/dev/null || fail 'healthz asks more than the daemon'
  status_is 192.0.2.11 192.0.2.11 200 || fail 'the other tree fails too'
  step 'twenty machines do what they should'
}
not_found() { ! status_is "$1" "$1" 200; }

mount -t tmpfs tmpfs /run
mkdir /run/netns
mount --bind "$scratch$home" "$(mkdir -p "$home" && echo "$home")"
mount -t tmpfs tmpfs /srv
mkdir /run/var && mount --bind /run/var /var/log && mkdir /var/log/korvo
one_machine
three_machines
standby
twenty_machines
