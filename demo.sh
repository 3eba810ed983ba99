#!/usr/bin/env bash
# ./demo.sh               builds the service, starts it over real documents, shows pages, stops it
# ./demo.sh --engines N   the same over N engines, 1 to 9, and with one of them killed
# ./demo.sh --keep        leaves it running and prints the commands to try
#
# Installs what is missing from Debian's packages.
set -eu -o pipefail
cd "$(dirname "$0")"
. scripts/need.sh

keep=no
engines=0
while [ $# -gt 0 ]; do
  case "$1" in
    --keep) keep=yes ;;
    --engines)
      if ! [[ ${2-} =~ ^[1-9]$ ]]; then
        echo "$0: --engines takes their number, 1 to 9" >&2
        exit 64
      fi
      engines=$2
      shift
      ;;
    *)
      echo "$0: unknown argument '$1'; use ./demo.sh, with --engines N or --keep" >&2
      exit 64
      ;;
  esac
  shift
done

need "${build_packages[@]}"
build release korvo-commmgr korvo-searchmgr korvo-docmgr korvo-engine korvo-index korvo-macro korvo-query korvo-web korvoctl
bin=$PWD/build/release/bin
folder=$(mktemp -d /tmp/korvo-demo.XXXXXX)  # a short name: macros go by at most 127 characters

# The programs run in process groups of their own, so each is ended by itself if something goes wrong.
programs=()
web=
give_up() {
  [ -z "$web" ] || kill "$web" 2>/dev/null || true
  [ ${#programs[@]} -eq 0 ] || kill "${programs[@]}" 2>/dev/null || true
  wait
  rm -rf "$folder"
}
trap give_up EXIT
trap 'exit 130' INT TERM

# free_ports COUNT: that many ports that nobody uses, all below 32768 as the service needs them.
free_ports() {
  local used
  used=" $(awk 'FNR > 1 { split($2, a, ":"); print strtonum_hex(a[2]) }
    function strtonum_hex(h,  i, n) { for (i = 1; i <= length(h); i++) n = 16 * n + index("123456789ABCDEF", substr(h, i, 1)); return n }' \
    /proc/net/tcp* /proc/net/udp* | tr '\n' ' ') "
  local port=$((10000 + RANDOM % 1900)) found=0  # from 12000 on are those of the tests, which may run meanwhile
  while [ $found -lt "$1" ]; do
    port=$((port + 1))
    [[ $used == *" $port "* ]] && continue
    echo $port
    found=$((found + 1))
  done
}

# line TYPE ID PARENT: a line of korvo.conf, with ports of its own; the program of that type starts later.
admin_ports=()
line() {
  local client=${ports[0]} admin=${ports[1]}
  ports=("${ports[@]:2}")
  printf '%-10s %s  127.0.0.1  %s  %s  %s\n' "$2" "$1" "$client" "$admin" "$3" >>"$folder/korvo.conf"
  admin_ports+=("$admin")
  [ "$1" != C ] || client_port=$client
}

# start PROGRAM ID: starts a program and asks it until it answers.
start() {
  local log="$folder/$1-$2.log" port=${admin_ports[${#programs[@]}]}
  "$bin/$1" "$2" "$folder" >"$folder/$1-$2.out" 2>"$log" &
  programs+=($!)
  until "$bin/korvoctl" ping --port "$port" --timeout 1 >/dev/null 2>&1; do
    kill -0 "${programs[-1]}" 2>/dev/null || {
      echo "$0: $1 does not start; it says:" >&2
      cat "$log" >&2
      exit 70
    }
  done
}

# start_web: puts the page in a browser before the service.
start_web() {
  cp -r share/korvo/web "$folder"
  for macro in results document; do "$bin/korvo-macro" asm "$folder/web/$macro.ms"; done
  cat >"$folder/korvo-web.conf" <<CONF
listen-port $web_port
daemon-port $client_port
daemon-admin-port ${admin_ports[0]}
macro-directory $folder/web
static-directory $folder/web/static
front-page $folder/web/front.html
texts $folder/web/texts.en
group packages results document Debian packages
sort packages -Installed-Size Largest first
sort packages Section Section
CONF
  "$bin/korvo-web" "$folder/korvo-web.conf" 2>"$folder/korvo-web.log" &
  web=$!
  until curl -sf "$address/healthz" >/dev/null; do
    kill -0 "$web" 2>/dev/null || {
      echo "$0: korvo-web does not start; it says:" >&2
      cat "$folder/korvo-web.log" >&2
      exit 70
    }
  done
}

# text_of ADDRESS: what a page says.
text_of() {
  curl -sf "$1" | sed 's/<[^>]*>//g; /^[[:space:]]*$/d'
}

# show COMMAND...: prints a command as it would be typed, and its answer.
show() {
  printf '\n$ %s\n' "$(printf '%q ' "$@")"
  "$@"
}

# part NUMBER: every so many records of the documents, as many parts as there are engines.
part() {
  awk -v RS= -v ORS='\n\n' -v parts="$engines" -v part="$1" 'NR % parts == part - 1' "$documents"
}

documents=/var/lib/dpkg/status
[ -s "$documents" ] || documents=demo/packages
mapfile -t ports < <(free_ports $((7 + 2 * engines)))
web_port=${ports[-1]}
address=http://127.0.0.1:$web_port
index=("$bin/korvo-index" --schema demo/packages.schema)

line C web1 -
line S packages web1
line D packages web1
if [ "$engines" -eq 0 ]; then
  echo "Indexing $documents"
  "${index[@]}" "$folder/packages.db" "$documents"
  echo "packages packages $folder/packages.db $folder/packages.db" >"$folder/korvo.db"
else
  echo "packages packages - -" >"$folder/korvo.db"  # the engines alone
  for i in $(seq "$engines"); do
    echo "Indexing part $i of $documents"
    part "$i" | "${index[@]}" "$folder/part$i.db" -
    line E "engine$i" packages
    echo "engine$i packages $folder/part$i.db $folder/part$i.db" >>"$folder/korvo.db"
  done
fi
for macro in demo/hit tools/macro/examples/package; do
  "$bin/korvo-macro" asm "$macro.ms" -o "$folder/${macro##*/}.mo"
done
cp tools/macro/examples/package.{hdr,tail} "$folder"
touch "$folder/hit.hdr" "$folder/hit.tail"

echo "Starting the Communications Manager, a Search Manager, a Document Manager and $engines engines"
start korvo-commmgr web1
start korvo-searchmgr packages
start korvo-docmgr packages
for i in $(seq "$engines"); do start korvo-engine "engine$i"; done
start_web

query=("$bin/korvo-query" --port "$client_port" --group packages --macro "$folder/package")
hits=("$bin/korvo-query" --port "$client_port" --group packages --macro "$folder/hit"
  --header "SCRIPT=html snippet place all" --header STATUS=1 --max-hits 3)
show "${query[@]}" --max-hits 2 network
type=()
[ "$engines" -eq 0 ] || type=(--type engine1)
show "${query[@]}" "${type[@]}" --doc 1
show "${hits[@]}" '"shared library"'
show "${hits[@]}" Section=admin
show "${hits[@]}" --header SORT=-Installed-Size library
show "${hits[@]}" --header FIRSTHIT=3 library
printf '\nThe same in a browser, as text: %s\n' "$address/search?q=library"
text_of "$address/search?q=library"
if [ "$engines" -gt 1 ]; then
  printf '\nengine1 is killed: what it holds is missing, and the answer says so.\n'
  kill -KILL -- "-${programs[3]}"
  wait "${programs[3]}" 2>/dev/null || true
  show "${hits[@]}" library
fi

if [ $keep = yes ]; then
  trap - EXIT
  ctl=$(printf '%q' "$bin/korvoctl")
  cat <<KEEP

In a browser: $address/
The service is up.  Try:
  $(printf '%q ' "${query[@]}")--max-hits 3 Section=admin
  $ctl ping --port ${admin_ports[0]}
  $ctl level INFO --port ${admin_ports[0]}; tail $folder/korvo-commmgr-web1.log
  exec 3<>/dev/tcp/127.0.0.1/$client_port
  printf '\\t@COMMAND=QUERY\\t@SEARCHGROUP=packages\\t@MACROFILE=$folder/package\\t@MAXHITS=2\\tmail\\n' >&3; cat <&3
Stop it with:
  (for port in ${admin_ports[*]}; do $ctl shutdown --port \$port || exit; done) && kill $web && rm -r $folder
KEEP
  exit 0
fi

for i in "${!programs[@]}"; do
  if kill -0 "${programs[i]}" 2>/dev/null; then "$bin/korvoctl" shutdown --port "${admin_ports[i]}"; fi
done
kill "$web"
wait "${programs[@]}" "$web" || true
programs=()
web=
echo
echo "Stopped."
