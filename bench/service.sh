#!/usr/bin/env bash
# ./bench/service.sh [ROW...]   measures the whole service, about ten minutes and 2 GB of disk; all rows without one:
#   omega     a page of ten hits against Omega's CGI program, a process a request
#   sphinx    the same against Sphinx with a process a connection, where Debian has it
#   clients   16 and 64 clients at the daemon
#   managers  what the managers add, and the parts of a page
#   engines   1, 2, 4 and 8 engines against one database with the same documents
#
# All package records that apt knows are searched, for the 550 lines of bench/queries.txt; a hit shows name, section,
# version and description.  What is compared takes turns.  ROUNDS=N in the environment changes the 35 rounds.  As root
# "chrt --rr 1 ./bench/service.sh" keeps other programs of the machine out of the way.  Installs what is missing from
# Debian's packages and uses the ports 14300 to 14419 of 127.0.0.1.
set -eu -o pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
. bench/group.sh

bin=$PWD/build/service/bin
rounds=${ROUNDS-35}
longest=3600  # seconds after which a program ends whatever happens
known=(omega sphinx clients managers engines)
[ $# -gt 0 ] || set -- "${known[@]}"
for row in "$@"; do
  [[ " ${known[*]} " == *" $row "* ]] || {
    echo "$0: unknown argument '$row'" >&2
    sed -n '2,7s/^# //p' "$0" >&2
    exit 64
  }
done

rows=$*

build_service() {
  need apt cmake g++ iproute2 libbenchmark-dev libxapian-dev ninja-build python3 xapian-tools
  mkdir -p build
  {
    cmake --preset release -DKORVO_BENCH=ON -DKORVO_TESTS=OFF -B build/service &&
      cmake --build build/service -j"$(nproc)"
  } >build/service.log 2>&1 || {
    cat build/service.log >&2
    echo "$0: the build failed" >&2
    exit 70
  }
}

programs=()
groups=()
folder=$(mktemp -d "${TMPDIR:-/tmp}/korvo-bench.XXXXXX")

stop_all() {
  local group
  [ ${#programs[@]} -eq 0 ] || kill "${programs[@]}" 2>/dev/null || true
  wait
  for group in "${groups[@]}"; do
    for _ in 1 2 3 4 5; do
      rmdir "$group" 2>/dev/null && break
      sleep 0.1
    done
  done
  rm -rf "$folder"
}
trap 'trap "" INT TERM; stop_all' EXIT
trap 'exit 130' INT TERM

# start GROUP COMMAND...: a program of that group, which ends by itself in the end.
start() {
  local group=
  [ ! -e "$folder/$1.group" ] || group=$(cat "$folder/$1.group")
  shift
  # shellcheck disable=SC2016  # the inner shell's
  timeout "$longest" sh -c '
    [ -z "$1" ] || echo $$ >"$1/cgroup.procs"
    shift
    exec "$@"' sh "$group" "$@" >/dev/null 2>>"$folder/log" &
  programs+=($!)
}

# start_korvo TREE PROGRAM ID ADMIN_PORT: one of a tree of programs, once it answers.
start_korvo() {
  start "$1" "$bin/korvo-$2" "$3" "$folder/$1"
  for _ in $(seq 100); do
    "$bin/korvoctl" ping --port "$4" --timeout 1 >/dev/null 2>&1 && return
    sleep 0.02
  done
  cat "$folder/log" >&2
  echo "$0: korvo-$2 $3 does not start" >&2
  exit 70
}

# make_index DATABASE FILE: at the usual priority, also where what is measured has another.
make_index() { chrt --other 0 "$bin/korvo-index" --schema "$folder/schema" "$1" "$2" >/dev/null 2>&1; }

# one_database: a daemon and two managers over packages.db, on the ports from 14300.
one_database() {
  [ ! -e "$folder/one" ] || return 0
  mkdir "$folder/one"
  cat >"$folder/one/korvo.conf" <<'CONF'
web       C  127.0.0.1  14300  14301  -
packages  S  127.0.0.1  14302  14303  web
packages  D  127.0.0.1  14304  14305  web
CONF
  echo "packages packages $folder/packages.db $folder/packages.db" >"$folder/one/korvo.db"
  make_group one
  start_korvo one commmgr web 14301
  start_korvo one searchmgr packages 14303
  start_korvo one docmgr packages 14305
}

# engines COUNT PORT: a daemon, a Search Manager, that many engines, and a Document Manager beside each, from that port
# on; the documents are dealt out among them.
engines() {
  local count=$1 port=$2 tree=engines-$1 i
  mkdir "$folder/$tree"
  awk -v count="$count" -v file="$folder/$tree/part." 'BEGIN { RS = ""; ORS = "\n\n" } { print >(file NR % count) }' "$folder/packages"
  make_group "$tree"
  {
    echo "web C 127.0.0.1 $port $((port + 1)) -"
    echo "packages S 127.0.0.1 $((port + 2)) $((port + 3)) web"
    for ((i = 0; i < count; i++)); do
      echo "e$i E 127.0.0.1 $((port + 4 + 4 * i)) $((port + 5 + 4 * i)) packages"
      echo "e$i D 127.0.0.1 $((port + 6 + 4 * i)) $((port + 7 + 4 * i)) web"
    done
  } >"$folder/$tree/korvo.conf"
  for ((i = 0; i < count; i++)); do
    echo "e$i e$i $folder/$tree/db.$i $folder/$tree/db.$i"
    make_index "$folder/$tree/db.$i" "$folder/$tree/part.$i"
    rm "$folder/$tree/part.$i"
  done >"$folder/$tree/korvo.db"
  start_korvo "$tree" commmgr web $((port + 1))
  start_korvo "$tree" searchmgr packages $((port + 3))
  for ((i = 0; i < count; i++)); do
    start_korvo "$tree" engine "e$i" $((port + 5 + 4 * i))
    start_korvo "$tree" docmgr "e$i" $((port + 7 + 4 * i))
  done
}

# load CLIENTS ROUNDS SECONDS SIDE...
load() {
  OMEGA_CONFIG_FILE=$folder/omega.conf REQUEST_METHOD=GET "$bin/korvo-service-load" "$@"
}

# side NAME KIND TARGET REQUESTS TREE
side() { echo "$1,$2,$3,$folder/$4.requests,$(cat "$folder/$5.group" 2>/dev/null || echo -)"; }

# drops PORT...: the connections that the full queue of each listener turned away.
drops() {
  local port
  for port in "$@"; do
    ss -Hlntm "sport = :$port" | sed -n 's/.*,d\([0-9]*\)).*/\1/p'
  done
}

row_omega() {
  need xapian-omega
  mkdir -p "$folder/templates"
  cp bench/omega.template "$folder/templates/package"
  printf 'database_dir %s\ntemplate_dir %s/templates\nlog_dir /nonexistent\ncdb_dir /nonexistent\n' "$folder" "$folder" >"$folder/omega.conf"
  chrt --other 0 scriptindex "$folder/omega" "$folder/script" "$folder/records" >/dev/null
  one_database
  make_group none
  echo "Pages alike: $(pages_alike) of $(wc -l <bench/queries.txt)"
  echo
  load 1,4 "$rounds" 0 "$(side Omega cgi /usr/lib/cgi-bin/omega/omega cgi none)" "$(side Korvo tcp 14300 line one)"
}

# pages_alike: in how many queries both pages are the same, byte for byte.
pages_alike() {
  local query alike=0
  while read -r query; do
    if cmp -s <(QUERY_STRING="DB=omega&DEFAULTOP=and&HITSPERPAGE=10&FMT=package&P=${query// /+}" REQUEST_METHOD=GET \
      OMEGA_CONFIG_FILE=$folder/omega.conf /usr/lib/cgi-bin/omega/omega | sed '1,2d') \
      <("$bin/korvo-query" --port 14300 --group packages --macro "$folder/package" --max-hits 10 "$query"); then
      alike=$((alike + 1))
    fi
  done <bench/queries.txt
  echo $alike
}

row_sphinx() {
  if ! command -v searchd >/dev/null && ! apt-cache show sphinxsearch >/dev/null 2>&1; then
    echo "No package sphinxsearch in this Debian."
    return
  fi
  need sphinxsearch
  one_database
  chrt --other 0 indexer --quiet -c "$folder/sphinx.conf" --all >/dev/null
  make_group sphinx
  start sphinx searchd -c "$folder/sphinx.conf" --nodetach
  until [ -n "$(ss -Hlnt 'sport = :14320')" ]; do sleep 0.1; done
  load 1,4 "$rounds" 0 "$(side Sphinx size 14320 sphinx sphinx)" "$(side Korvo tcp 14300 line one)"
}

row_clients() {
  one_database
  local before after
  before=$(drops 14300 14302 14304)
  load 4,16,64 7 3 "$(side Korvo tcp 14300 line one)"
  after=$(drops 14300 14302 14304)
  echo
  echo "Connections that a full queue turned away: daemon, Search Manager, Document Manager"
  paste <(echo "$before") <(echo "$after") | awk '{ printf "%s%d", (NR > 1 ? ", " : ""), $2 - $1 } END { print "" }'
}

row_managers() {
  one_database
  mkdir "$folder/replay"
  printf 'web C 127.0.0.1 14310 14311 -\npackages S 127.0.0.1 14312 14313 web\npackages D 127.0.0.1 14314 14315 web\n' >"$folder/replay/korvo.conf"
  make_group replay
  make_group players
  make_group none
  start players "$bin/korvo-service-replay" 14302 14304 14312 14314 "$folder"
  until [ -e "$folder/replay.ready" ]; do sleep 0.1; done
  start_korvo replay commmgr web 14311
  local type
  for type in S/14312/14313 D/14314/14315; do
    IFS=/ read -r type client admin <<<"$type"
    printf '\t@COMMAND=STARTUPANNOUNCEMENT\tID=packages\tTYPE=%s\tIP=127.0.0.1\tCLIENTPORT=%d\tADMINPORT=%d\n' "$type" "$client" "$admin" >/dev/udp/127.0.0.1/14311
  done
  load 1 "$rounds" 0 \
    "$(side 'daemon alone' tcp 14310 line replay)" \
    "$(side 'whole page' tcp 14300 line one)" \
    "$(side 'Search Manager' tcp 14302 line one)" \
    "$(side 'ten documents' turns 14304 documents one)" \
    "$(side 'a match in Xapian' match "$folder/packages.db" words none)" \
    "$(side 'a match and ten documents' xapian "$folder/packages.db" words none)"
}

row_engines() {
  local count port=14330 sides=()
  for count in 1 2 4 8; do
    engines $count $port
    sides+=("$(side "$count engines" tcp $port line engines-$count)")
    port=$((port + 4 + 4 * count))
  done
  one_database
  load 1,4 "$rounds" 0 "$(side 'one database' tcp 14300 line one)" "${sides[@]}"
}

build_service
apt-cache dumpavail | python3 bench/service_data.py "$folder" bench/queries.txt
"$bin/korvo-macro" asm tools/macro/examples/package.ms -o "$folder/package.mo"
cp tools/macro/examples/package.hdr tools/macro/examples/package.tail "$folder"
make_index "$folder/packages.db" "$folder/packages"
echo "$(git describe --always --dirty 2>/dev/null || echo no commit), $(date -u +%Y-%m-%d), Linux $(uname -r), $(nproc) x$(sed -n 's/^model name[^:]*://p' /proc/cpuinfo | head -1), load $(cut -d' ' -f1 /proc/loadavg), $(grep -c '^Id: ' "$folder/packages") packages"
for row in $rows; do
  printf '\n%s, load %s\n\n' "$row" "$(cut -d' ' -f1 /proc/loadavg)"
  "row_$row"
done
