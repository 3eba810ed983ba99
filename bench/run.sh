#!/usr/bin/env bash
# ./bench/run.sh [ROW...]        measures the daemon against the floor (bench/floor.c), about four minutes
# ./bench/run.sh --growth WHAT   how cost grows with hits, document, fields, peers, clients or level, and
#                                what a priority of the main process does; or all
# ./bench/run.sh --strace        counts the system calls of one QUERY of 10 hits, by name, for both
# ./bench/run.sh --micro         the parts of the daemon that need no socket
#
# The names of rows are explained in bench/rows.h.  Installs what is missing from Debian's packages and
# uses the ports 14000 to 14299 of 127.0.0.1.
set -eu -o pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
. bench/group.sh

rows=(unknown getdoc-2048 query-1 query-10 query-100 ordered-8 reverse-8 whole-38912)
bin=$PWD/build/bench/bin
longest=1800  # seconds after which a server ends whatever happens
launcher=()   # stands before the daemon's command

build_bench() {
  need cmake g++ libbenchmark-dev ninja-build
  mkdir -p build
  {
    cmake --preset release -DKORVO_BENCH=ON -DKORVO_TESTS=OFF -DKORVO_BACKENDS=OFF -B build/bench &&
      cmake --build build/bench -j"$(nproc)"
  } >build/bench.log 2>&1 || {
    cat build/bench.log >&2
    echo "$0: the build failed" >&2
    exit 70
  }
}

# start NAME GROUP COMMAND...: a server that ends by itself in the end; its process id goes to
# $folder/NAME.pid.
start() {
  local name=$1 group=
  [ ! -e "$folder/$2.group" ] || group=$(cat "$folder/$2.group")
  shift 2
  # shellcheck disable=SC2016  # the inner shell's
  timeout "$longest" sh -c '
    echo $$ >"$1"
    [ -z "$2" ] || echo $$ >"$2/cgroup.procs"
    shift 2
    exec "$@"' sh "$folder/$name.pid" "$group" "$@" >/dev/null 2>"$folder/$name.log" &
  servers+=($!)
}

servers=()
groups=()
folder=

start_servers() {
  local shared=${TMPDIR:-/tmp} i
  [ ! -w /dev/shm ] || shared=/dev/shm
  folder=$(mktemp -d "$shared/korvo-bench.XXXXXX")
  make_group daemon
  make_group floor
  start managers none "$bin/korvo-bench-managers" "$folder" "$@"
  until [ -e "$folder/ready" ]; do
    kill -0 "${servers[0]}" 2>/dev/null || {
      cat "$folder/managers.log" >&2
      exit 1
    }
    sleep 0.02
  done
  printf 'bench C 127.0.0.1 14000 14001 -\n' >"$folder/korvo.conf"
  ln -s /dev/null "$folder/daemon.log"  # its log lines are written, and cost no memory
  start daemon daemon "${launcher[@]}" "$bin/korvo-commmgr" bench "$folder"
  for ((i = 0; i < $#; i++)); do
    local row=${*:i+1:1} search=14002 document=14003
    [[ $row == query-* ]] || search=0
    [[ $row != unknown ]] || document=0
    start "floor-$row" floor "$bin/korvo-floor" $((14100 + 2 * i)) $((14101 + 2 * i)) $search $document "$folder/$row"
  done
}

stop_servers() {
  local group
  [ ${#servers[@]} -eq 0 ] || kill "${servers[@]}" 2>/dev/null || true
  wait
  servers=()
  for group in "${groups[@]}"; do
    for _ in 1 2 3 4 5; do
      rmdir "$group" 2>/dev/null && break
      sleep 0.1
    done
  done
  groups=()
  [ -z "$folder" ] || rm -rf "$folder"
  folder=
}
trap 'trap "" INT TERM; stop_servers' EXIT
trap 'exit 130' INT TERM

# measure LOAD_OPTION... -- ROW...
measure() {
  local options=()
  while [ "$1" != -- ]; do
    options+=("$1")
    shift
  done
  shift
  start_servers "$@"
  "$bin/korvo-load" "${options[@]}" "$folder" "$@"
  stop_servers
}

machine() {
  echo "$(git describe --always --dirty 2>/dev/null || echo no commit), $(date -u +%Y-%m-%d), Linux $(uname -r), $(nproc) x$(sed -n 's/^model name[^:]*://p' /proc/cpuinfo | head -1), load $(cut -d' ' -f1 /proc/loadavg)"
  echo
}

legend() {
  cat <<'TEXT'
Microseconds; medians over the rounds, daemon and floor in turns.  A ratio is daemon / floor of the same
round: its median, and the quartiles over the rounds.  CPU: of the server and its children, a request, as
their control group keeps it ("-": no control group could be made).  p99 and max: of all requests.
queue: share of the connections that met the full listen queue, so that the kernel had to repeat a segment.

TEXT
}

main_table() {
  machine
  legend
  measure --bursts --memory -- "$@"
}

growth() {
  case "$1" in
    hits) measure --clients 1 -- query-0 query-1 query-3 query-10 query-30 query-100 query-300 ;;
    document) measure --clients 1 -- getdoc-128 getdoc-1024 getdoc-4096 getdoc-16384 getdoc-32768 whole-1024 whole-16384 whole-38912 ;;
    fields) measure --clients 1 -- ordered-1 ordered-4 ordered-16 ordered-64 reverse-1 reverse-4 reverse-16 reverse-64 ;;
    clients) measure --clients 1,2,4,8,16,32 -- query-10 ;;
    peers) vary --peers 0 10 1000 100000 ;;
    level) vary --level FATAL WARNING STATUS INFO ;;
    priority)
      measure --clients none --bursts -- query-10
      echo
      echo "The same with the main process at a real-time priority that its children do not inherit"
      launcher=(chrt --reset-on-fork --rr 1)
      measure --clients none --bursts -- query-10
      launcher=()
      ;;
    all)
      local what
      for what in hits document fields clients peers level priority; do
        printf '\nGrowth with %s\n\n' "$what"
        growth "$what"
      done
      ;;
    *) usage "$1" ;;
  esac
}

# vary LOAD_OPTION VALUE...: a line a value, each with fresh servers.
vary() {
  local option=$1 value head=
  shift
  for value in "$@"; do
    measure --clients 1 "$option" "$value" --label "${option#--} $value" $head -- query-10
    head=--no-head
  done
}

# trace NAME PORT: the system calls of one request, a line each with its name, to $folder/NAME.calls.
trace() {
  strace -f -o "$folder/$1.strace" -p "$(cat "$folder/$1.pid")" 2>"$folder/$1.attach" &
  local tracer=$! _
  for _ in $(seq 100); do
    grep -qs attached "$folder/$1.attach" && break
    sleep 0.05
  done
  exec 3<>"/dev/tcp/127.0.0.1/$2"
  cat "$folder/query-10.command" >&3
  cmp - "$folder/query-10.answer" <&3
  exec 3>&-
  sleep 0.2  # until the main process waits again
  kill "$tracer"
  wait "$tracer" || true
  # A call that another process interrupts stands on two lines, of which the second is no call.
  # The first line is the wait that the request ended.
  sed -nE '2,$s/^[0-9]+ +([a-z_0-9]+)\(.*/\1/p' "$folder/$1.strace" | sort >"$folder/$1.calls"
}

count_calls() {
  need strace
  start_servers query-10
  "$bin/korvo-load" --rounds 0 "$folder" query-10
  trace floor-query-10 14100
  trace daemon 14000
  echo "System calls of one QUERY of 10 hits, from accept to the next wait"
  echo
  cat "$folder/floor-query-10.calls" "$folder/daemon.calls" | sort -u | while read -r name; do
    echo "$name $(grep -cx "$name" "$folder/floor-query-10.calls" || true) $(grep -cx "$name" "$folder/daemon.calls" || true)"
  done | awk '
    BEGIN { line = "| %-16s | %5s | %6s | %10s |\n"; printf line, "call", "floor", "daemon", "difference"; print "|------------------|------:|-------:|-----------:|" }
    { printf line, $1, $2, $3, $3 - $2; floor += $2; daemon += $3 }
    END { printf line, "all", floor, daemon, daemon - floor }'
  stop_servers
}

usage() {
  echo "$0: unknown argument '$1'" >&2
  sed -n '2,6s/^# //p' "$0" >&2
  exit 64
}

case "${1-}" in
  --growth)
    build_bench
    machine
    legend
    growth "${2-all}"
    ;;
  --strace)
    build_bench
    count_calls
    ;;
  --micro)
    build_bench
    "$bin/korvo-micro"
    ;;
  -*) usage "$1" ;;
  *)
    build_bench
    [ $# -gt 0 ] || set -- "${rows[@]}"
    main_table "$@"
    ;;
esac
