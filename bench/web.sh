#!/usr/bin/env bash
# ./bench/web.sh [ROW...]   measures korvo-web, about ten minutes and 1 GB of disk; all rows without one:
#   memory  what korvo-web holds with 1000 idle browsers, and with 200 that are answered
#   added   what korvo-web adds to a QUERY that is asked directly: one client, time to the first byte
#   rate    pages a second with 1, 16 and 200 clients, against Omega's CGI program behind lighttpd
#   burst   200 browsers at once, against the same and against the daemon asked directly
#
# All package records that apt knows are searched, for the lines of bench/queries.txt; a hit shows name, section, version
# and description.  What is compared takes turns.  ROUNDS=N in the environment changes the 15 rounds, SECONDS_EACH=N the 3
# seconds of a round of "rate".  As root "chrt --rr 1 ./bench/web.sh" keeps other programs of the machine out of the way.
# Installs what is missing from Debian's packages; lighttpd and Omega are unpacked below build/, not installed.  Uses the
# ports 14420 to 14429 of 127.0.0.1.
set -eu -o pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh

bin=$PWD/build/service/bin
rounds=${ROUNDS-15}
seconds=${SECONDS_EACH-3}
known=(memory added rate burst)
[ $# -gt 0 ] || set -- "${known[@]}"
for row in "$@"; do
  [[ " ${known[*]} " == *" $row "* ]] || {
    echo "$0: unknown argument '$row'" >&2
    sed -n '2,6s/^# //p' "$0" >&2
    exit 64
  }
done

build_programs() {
  need apt cmake g++ libbenchmark-dev libmicrohttpd-dev libxapian-dev ninja-build pkg-config python3
  mkdir -p build
  {
    cmake --preset release -DKORVO_BENCH=ON -DKORVO_TESTS=OFF -B build/service &&
      cmake --build build/service -j"$(nproc)" --target korvo-commmgr korvo-searchmgr korvo-docmgr korvo-index korvo-macro korvoctl korvo-web
  } >build/service.log 2>&1 || {
    cat build/service.log >&2
    echo "$0: the build failed" >&2
    exit 70
  }
}

# unpack: lighttpd and Omega, and the libraries that they name.
unpack() {
  [ ! -e "$fronts/done" ] || return 0
  mkdir -p "$fronts"
  # shellcheck disable=SC2046  # a word a package
  (cd "$fronts" && apt-get download -qq lighttpd xapian-omega \
    $(apt-cache depends lighttpd xapian-omega | sed -n 's/^ *Depends: \(lib[^ ]*\)$/\1/p' | grep -vx libc6 | sort -u)) 2>/dev/null
  local package
  for package in "$fronts"/*.deb; do dpkg-deb -x "$package" "$fronts"; done
  touch "$fronts/done"
}

programs=()
fronts=$PWD/build/web-fronts
folder=$(mktemp -d /tmp/korvo-web.XXXXXX)  # short: a macro goes by at most 123 characters

stop_all() {
  [ ${#programs[@]} -eq 0 ] || kill "${programs[@]}" 2>/dev/null || true
  wait
  rm -rf "$folder"
}
trap 'trap "" INT TERM; stop_all' EXIT
trap 'exit 130' INT TERM

# start PORT COMMAND...: once something listens there.
start() {
  local port=$1
  shift
  "$@" >/dev/null 2>>"$folder/log" &
  programs+=($!)
  for _ in $(seq 200); do
    (: <>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && return
    sleep 0.05
  done
  cat "$folder/log" >&2
  echo "$0: nothing listens on port $port: $*" >&2
  exit 70
}

start_service() {
  chrt --other 0 "$bin/korvo-index" --schema "$folder/schema" "$folder/packages.db" "$folder/packages" >/dev/null 2>&1
  cat >"$folder/korvo.conf" <<'CONF'
web       C  127.0.0.1  14420  14421  -
packages  S  127.0.0.1  14422  14423  web
packages  D  127.0.0.1  14424  14425  web
CONF
  echo "packages packages $folder/packages.db $folder/packages.db" >"$folder/korvo.db"
  mkdir "$folder/pages"
  cp -r share/korvo/web/* "$folder/pages"
  cp tools/macro/examples/package.hdr "$folder/pages/results.hdr"
  cp tools/macro/examples/package.tail "$folder/pages/results.tail"
  "$bin/korvo-macro" asm tools/macro/examples/package.ms -o "$folder/pages/results.mo"
  "$bin/korvo-macro" asm share/korvo/web/document.ms -o "$folder/pages/document.mo"
  cat >"$folder/korvo-web.conf" <<CONF
listen-port 14426
daemon-port 14420
daemon-admin-port 14421
macro-directory $folder/pages
static-directory $folder/pages/static
front-page $folder/pages/front.html
texts $folder/pages/texts.en
log $folder/web.log
group packages results document Packages
CONF
  start 14420 "$bin/korvo-commmgr" web "$folder"
  start 14422 "$bin/korvo-searchmgr" packages "$folder"
  start 14424 "$bin/korvo-docmgr" packages "$folder"
  until "$bin/korvoctl" ping --timeout 1 --port 14421 >/dev/null 2>&1; do sleep 0.05; done
  start 14426 "$bin/korvo-web" "$folder/korvo-web.conf"
  web=${programs[-1]}
}

start_omega() {
  [ ! -e "$folder/omega.conf" ] || return 0
  unpack
  local libraries
  libraries=$(find "$fronts/usr/lib" -maxdepth 1 -name '*-linux-gnu')
  mkdir "$folder/templates" "$folder/cgi"
  cp bench/omega.template "$folder/templates/package"
  cp "$fronts/usr/lib/cgi-bin/omega/omega" "$folder/cgi/omega.cgi"
  printf 'database_dir %s\ntemplate_dir %s/templates\nlog_dir /nonexistent\ncdb_dir /nonexistent\n' "$folder" "$folder" >"$folder/omega.conf"
  LD_LIBRARY_PATH=$libraries chrt --other 0 "$fronts/usr/bin/scriptindex" "$folder/omega" "$folder/script" "$folder/records" >/dev/null
  cat >"$folder/lighttpd.conf" <<CONF
server.modules = ("mod_setenv", "mod_cgi")
server.document-root = "$folder/cgi"
server.bind = "127.0.0.1"
server.port = 14427
server.max-connections = 1100
cgi.assign = (".cgi" => "")
setenv.add-environment = ("OMEGA_CONFIG_FILE" => "$folder/omega.conf", "LD_LIBRARY_PATH" => "$libraries")
CONF
  LD_LIBRARY_PATH=$libraries start 14427 "$fronts/usr/sbin/lighttpd" -D -f "$folder/lighttpd.conf" -m "$fronts/usr/lib/lighttpd"
}

load() { python3 bench/web_load.py "$@"; }

sides=("korvo-web,14426,/search?q=" "Omega behind lighttpd,14427,/omega.cgi?DB=omega&DEFAULTOP=and&HITSPERPAGE=10&FMT=package&P=")

row_added() { load added "$rounds" 14420 14426 "$folder/pages/results"; }
row_rate() {
  start_omega
  load rate "$rounds" "$seconds" "${sides[@]}"
}
row_burst() {
  start_omega
  load burst "$rounds" 14420 "$folder/pages/results" "${sides[@]}"
}
row_memory() { load memory "$web" 14426; }

build_programs
apt-cache dumpavail | python3 bench/service_data.py "$folder" bench/queries.txt
start_service
echo "$(git describe --always --dirty 2>/dev/null || echo no commit), $(date -u +%Y-%m-%d), Linux $(uname -r), $(nproc) x$(sed -n 's/^model name[^:]*://p' /proc/cpuinfo | head -1), load $(cut -d' ' -f1 /proc/loadavg), $(grep -c '^Id: ' "$folder/packages") packages"
for row in "$@"; do
  printf '\n%s, load %s\n\n' "$row" "$(cut -d' ' -f1 /proc/loadavg)"
  "row_$row"
done
