#!/usr/bin/env bash
# check_completion.sh SOURCES BIN   fails when bash completes something else than the programs in BIN take
set -eu -o pipefail
completions=$(realpath "$1")/share/bash-completion bin=$(realpath "$2")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"
export LC_ALL=C
status=0

# offered NAME LINE [BEHIND...]: what is offered for the last word of the line, which goes on behind it
offered() {
  local name=$1 line
  local file=$completions/completions/$name
  [ -e "$file" ] || file=$completions/program
  # shellcheck disable=SC1090
  . "$file"
  read -ra line <<<"$2"
  [[ $2 != *' ' ]] || line+=('')
  COMP_WORDS=("${line[@]}" "${@:3}") COMP_CWORD=$((${#line[@]} - 1)) COMPREPLY=()
  local function
  function=$(complete -p "$name" | sed -E 's/.* -F ([^ ]+) .*/\1/')
  "$function" "$bin/$name" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
  printf '%s\n' "${COMPREPLY[@]}" | sort | paste -sd ' '
}

# expect WORDS NAME LINE [BEHIND...]
expect() {
  local found
  found=$(offered "${@:2}")
  [ "$found" = "$1" ] && return
  echo "completion: '$3' is offered '$found', not '$1'" >&2
  status=1
}

# The options of the summary: a word that begins a line behind two blanks, and one behind a comma.
options() {
  "$bin/$1" --help | awk '/^  -/ { for (i = 1; i <= NF && $i ~ /^-/; i++) { sub(",", "", $i); print $i } }' | sort | paste -sd ' '
}

touch page.ms page.mo page.hdr other.mo
mkdir folder conf
cat >conf/korvo.conf <<'CONF'
# ID  TYPE  IP         CLIENTPORT  ADMINPORT  PARENTID
#web0 C     127.0.0.1  8001        8002       -
web1  C     127.0.0.1  8001        8002       -
web2  C     127.0.0.1  8003        8004       -
notes S     127.0.0.1  8011        8012       web1
notes D     127.0.0.1  8021        8022       web1
$(touch${IFS}ran) S 127.0.0.1  8031  8032     web1
half1 E     127.0.0.1  8031        8032       notes
CONF

tools=0
for name in korvo-index korvo-macro korvo-query korvo-web korvo-wire korvoctl; do
  [ -x "$bin/$name" ] || continue
  tools=$((tools + 1))
  all=$(options "$name")
  [ -n "$all" ] || { echo "completion: the summary of $name has no options" >&2; status=1; }
  expect "$all" "$name" "$name -"
  expect "--version" "$name" "$name --versi"
done
[ "$tools" -gt 0 ] || { echo "completion: there are no programs in $bin" >&2; exit 1; }

for name in korvo-commmgr korvo-searchmgr korvo-docmgr korvo-engine; do
  [ ! -x "$bin/$name" ] || "$bin/$name" '-?' | grep -q -- ' -?$' || { echo "completion: the summary of $name has no -?" >&2; status=1; }
done
expect '-? web1 web2' korvo-commmgr 'korvo-commmgr ' conf
expect 'web2' korvo-commmgr 'korvo-commmgr web2' conf
expect 'conf' korvo-commmgr 'korvo-commmgr web1 co'
expect '' korvo-commmgr 'korvo-commmgr web1 conf '
# shellcheck disable=SC2016
expect '$(touch${IFS}ran) -? notes' korvo-searchmgr 'korvo-searchmgr ' conf
expect 'notes' korvo-docmgr 'korvo-docmgr n' conf
expect '-? half1' korvo-engine 'korvo-engine ' conf
expect '-?' korvo-engine 'korvo-engine -' conf

expect 'asm check dis run' korvo-macro 'korvo-macro '
expect 'conf folder page.ms' korvo-macro 'korvo-macro asm '
expect 'other.mo' korvo-macro 'korvo-macro dis o'
expect 'page.hdr page.mo page.ms' korvo-macro 'korvo-macro asm -o p'
expect 'conf folder other.mo page.mo page.ms' korvo-macro 'korvo-macro check '
expect 'page.hdr page.mo page.ms' korvo-macro 'korvo-macro run page.mo p'
expect 'folder' korvo-macro 'korvo-macro run --fetch f'
expect '101 102 103 104' korvo-macro 'korvo-macro run --at '
expect 'conf folder other page' korvo-query 'korvo-query --macro '
expect '' korvo-query 'korvo-query --port '
expect '' korvo-query 'korvo-query '
if [ -x "$bin/korvo-index" ]; then
  expect 'control csv jsonl tsv' korvo-index 'korvo-index --format '
  expect 'folder' korvo-index 'korvo-index --schema fo'
  expect '' korvo-index 'korvo-index --id '
fi
[ ! -x "$bin/korvo-web" ] || expect 'page.hdr page.mo page.ms' korvo-web 'korvo-web --check p'

expect 'check play replay tap' korvo-wire 'korvo-wire '
expect 'client daemon docmgr searchmgr' korvo-wire 'korvo-wire check '
expect 'junit' korvo-wire 'korvo-wire check --format j'
expect 'page.hdr page.mo page.ms' korvo-wire 'korvo-wire play p'

expect 'ping' korvoctl 'korvoctl pi'
expect 'shutdown' korvoctl 'korvoctl sh'
# shellcheck disable=SC2016
expect '$(touch${IFS}ran) half1 notes web1 web2' korvoctl 'korvoctl ping ' --dir conf
expect 'half1' korvoctl 'korvoctl ping --dir conf h'
expect 'WARNING' korvoctl 'korvoctl level W' --dir conf
expect 'conf' korvoctl 'korvoctl ping --dir c'
[ ! -e ran ] || { echo "completion: what stands in korvo.conf is carried out" >&2; status=1; }
exit $status
