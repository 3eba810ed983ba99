#!/usr/bin/env bash
# ./demo.sh          builds the service, starts it over real documents, shows a page of each kind, stops it
# ./demo.sh --keep   leaves it running and prints the commands to try
#
# Installs what is missing from Debian's packages.
set -eu -o pipefail
cd "$(dirname "$0")"
. scripts/need.sh

keep=no
case "$*" in
  '') ;;
  --keep) keep=yes ;;
  *)
    echo "$0: unknown argument '$*'; use ./demo.sh or ./demo.sh --keep" >&2
    exit 64
    ;;
esac

need "${build_packages[@]}"
build release korvo-commmgr korvo-searchmgr korvo-docmgr korvo-index korvo-macro korvo-query korvoctl
bin=$PWD/build/release/bin
folder=$(mktemp -d /tmp/korvo-demo.XXXXXX)  # a short name: macros go by at most 127 characters

# The programs run in process groups of their own, so each is ended by itself if something goes wrong.
programs=()
give_up() {
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
  local port=$((10000 + RANDOM % 10000)) found=0
  while [ $found -lt "$1" ]; do
    port=$((port + 1))
    [[ $used == *" $port "* ]] && continue
    echo $port
    found=$((found + 1))
  done
}

# start PROGRAM ID ADMIN_PORT: starts a program and asks it until it answers.
start() {
  "$bin/$1" "$2" "$folder" >"$folder/$1.out" 2>"$folder/$1.log" &
  programs+=($!)
  until "$bin/korvoctl" ping --port "$3" --timeout 1 >/dev/null 2>&1; do
    kill -0 "${programs[-1]}" 2>/dev/null || {
      echo "$0: $1 does not start; it says:" >&2
      cat "$folder/$1.log" >&2
      exit 70
    }
  done
}

# show COMMAND...: prints a command as it would be typed, and its answer.
show() {
  printf '\n$ %s\n' "$(printf '%q ' "$@")"
  "$@"
}

documents=/var/lib/dpkg/status
[ -s "$documents" ] || documents=demo/packages
mapfile -t port < <(free_ports 6)

echo "Indexing $documents"
"$bin/korvo-index" "$folder/packages.db" "$documents"
"$bin/korvo-macro" asm tools/macro/examples/package.ms -o "$folder/package.mo"
cp tools/macro/examples/package.hdr tools/macro/examples/package.tail "$folder"
cat >"$folder/korvo.conf" <<CONF
# ID       TYPE  IP         CLIENTPORT  ADMINPORT  PARENTID
web1       C     127.0.0.1  ${port[0]}       ${port[1]}      -
packages   S     127.0.0.1  ${port[2]}       ${port[3]}      web1
packages   D     127.0.0.1  ${port[4]}       ${port[5]}      web1
CONF
cat >"$folder/korvo.db" <<DB
# ID       DBNAME    SEARCHLOC             DOCLOC
packages   packages  $folder/packages.db   $folder/packages.db
DB

echo "Starting the Communications Manager, a Search Manager and a Document Manager"
start korvo-commmgr web1 "${port[1]}"
start korvo-searchmgr packages "${port[3]}"
start korvo-docmgr packages "${port[5]}"

query=("$bin/korvo-query" --port "${port[0]}" --group packages --macro "$folder/package")
show "${query[@]}" --max-hits 5 network
show "${query[@]}" --doc 1

if [ $keep = yes ]; then
  trap - EXIT
  ctl=$(printf '%q' "$bin/korvoctl")
  cat <<KEEP

The service is up.  Try:
  $(printf '%q ' "${query[@]}")--max-hits 3 Section=admin
  $ctl ping --port ${port[1]}
  $ctl level INFO --port ${port[1]}; tail $folder/korvo-commmgr.log
  exec 3<>/dev/tcp/127.0.0.1/${port[0]}
  printf '\\t@COMMAND=QUERY\\t@SEARCHGROUP=packages\\t@MACROFILE=$folder/package\\t@MAXHITS=2\\tmail\\n' >&3; cat <&3
Stop it with:
  (for port in ${port[1]} ${port[3]} ${port[5]}; do $ctl shutdown --port \$port || exit; done) && rm -r $folder
KEEP
  exit 0
fi

for admin in "${port[3]}" "${port[5]}" "${port[1]}"; do
  "$bin/korvoctl" shutdown --port "$admin"
done
wait "${programs[@]}"
programs=()
echo
echo "Stopped."
