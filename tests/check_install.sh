#!/usr/bin/env bash
# check_install.sh SOURCES BUILD   fails when an installation lacks something, or its programs look for their files elsewhere
set -eu -o pipefail
sources=$1 build=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
log=$scratch/log
status=0
fault() {
  echo "installation: $*" >&2
  status=1
}
run() { # run COMMAND...: shows what it says only when it fails
  "$@" >"$log" 2>&1 && return
  cat "$log" >&2
  exit 1
}

has_all() { # has_all FOLDER: documents, manual pages, examples and the two folders
  local folder=$1 page name
  for name in etc lib; do
    [ -d "$folder/$name" ] || fault "there is no $name/"
  done
  for page in "$sources"/docs/*.[1-8]; do
    name=$(basename "$page")
    [ -e "$folder/share/man/man${page##*.}/$name" ] && continue
    [[ $name != *.[57] && ! -e $folder/bin/${name%.*} ]] || fault "the manual page $name is missing"
  done
  for name in README.md SECURITY.md CHANGELOG.md LICENSE; do
    [ -s "$folder/share/doc/korvo/$name" ] || fault "$name is missing"
  done
  [ -s "$folder/share/korvo/messages" ] || fault "messages is missing"
  for name in conformance/documents conformance/daemon/query.transcript wireshark/korvo.lua; do
    [ -s "$folder/share/korvo/$name" ] || fault "$name is missing"
  done
  for name in "$folder"/bin/*; do
    name=$(basename "$name")
    [ -s "$folder/share/bash-completion/completions/$name" ] || fault "the completion of $name is missing"
  done
  for page in "$sources"/docs/*.md; do
    [ -s "$folder/share/doc/korvo/docs/$(basename "$page")" ] || fault "$(basename "$page") is missing"
  done
  for name in korvo.conf korvo.db package.ms package.hdr package.tail operation/firewall.nft web/korvo-web.conf web/nginx.conf; do
    [ -s "$folder/share/doc/korvo/examples/$name" ] || fault "the example $name is missing"
  done
}

has_web() { # has_web FOLDER BUILD: the pages of korvo-web, and the macros as they were made
  local folder=$1/share/korvo/web made=$2/share/korvo/web file
  [ -e "$2/bin/korvo-web" ] || return 0
  while read -r file; do
    [ -s "$folder/$file" ] || fault "share/korvo/web/$file is missing"
  done < <(cd "$sources/share/korvo/web" && find . -type f)
  for file in "$made"/*.mo; do
    cmp "$file" "$folder/$(basename "$file")" >&2 || fault "share/korvo/web/$(basename "$file") is not what was made"
  done
}

echo 'packed, by somebody whose files nobody else may read'
(
  umask 077
  DESTDIR=$scratch/pack run cmake --install "$build"
)
closed=$(find "$scratch/pack/usr/local/korvo" ! -perm -o=r -o -type d ! -perm -o=x)
[ -z "$closed" ] || fault "others may not read $closed"
has_all "$scratch/pack/usr/local/korvo"
has_web "$scratch/pack/usr/local/korvo" "$build"
"$sources/tests/links.sh" "$scratch/pack/usr/local/korvo/share/doc/korvo" || status=1

echo 'elsewhere, where the programs would not look'
cmake --install "$build" --prefix "$scratch/other" >"$log" 2>&1 && fault 'another prefix is not refused'
tr -s ' \n' ' ' <"$log" | grep -qF "The programs look for etc/ and lib/ in /usr/local/korvo, not in $scratch/other. Install with --prefix /usr/local/korvo, or configure with -DKORVO_HOME=$scratch/other; DESTDIR puts a copy elsewhere, to pack it." ||
  fault "the reason why another prefix is refused is missing: $(cat "$log")"
[ ! -e "$scratch/other" ] || fault 'a refused installation leaves files behind'

echo 'elsewhere, where they look'
home=$scratch/home
run cmake -S "$sources" -B "$scratch/build" -G Ninja -DKORVO_HOME="$home" -DKORVO_TESTS=OFF -DKORVO_BACKENDS=OFF \
  -DKORVO_STATIC=OFF -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0
run cmake --build "$scratch/build" -j2
run cmake --install "$scratch/build"
has_all "$home"
has_web "$home" "$scratch/build"
grep -rlF /usr/local/korvo "$home" >"$log" && fault "the usual folder is named in $(cat "$log")"
cp "$home/share/doc/korvo/examples/korvo.conf" "$home/etc"
"$home/bin/korvo-commmgr" nobody >/dev/null 2>"$log"
grep -qF "Could not locate id = 'nobody' in file '$home/etc/korvo.conf'" "$log" || fault "the configuration is not looked for in etc/: $(cat "$log")"
"$home/bin/korvoctl" list >"$log" 2>&1 || fault "korvoctl does not look for korvo.conf in etc/: $(cat "$log")"
"$home/bin/korvoctl" log --explain </dev/null >"$log" 2>&1 || fault "korvoctl does not look for messages in share/korvo/: $(cat "$log")"
grep -qF "$home/lib" "$home/bin/korvo-commmgr" || fault 'macros are not looked for in lib/'

echo "tools that look in the system's own folders"
run cmake -S "$sources" -B "$scratch/build" -DKORVO_CONF="$scratch/conf" -DKORVO_SHARE="$scratch/share"
run cmake --build "$scratch/build" -j2
mkdir "$scratch/conf" "$scratch/share"
cp "$home/etc/korvo.conf" "$scratch/conf"
cp "$home/share/korvo/messages" "$scratch/share"
rm "$home/etc/korvo.conf"
"$scratch/build/bin/korvoctl" list >"$log" 2>&1 || fault "korvoctl does not look for korvo.conf in KORVO_CONF: $(cat "$log")"
rm "$home/share/korvo/messages"
"$scratch/build/bin/korvoctl" log --explain </dev/null >"$log" 2>&1 || fault "korvoctl does not look for messages in KORVO_SHARE: $(cat "$log")"
head -c 20000 /dev/zero >"$scratch/share/long.hdr"
"$scratch/build/bin/korvoctl" check >"$log" 2>&1 || true  # it finds that
grep -qF "$scratch/share/long.hdr:1: " "$log" || fault "korvoctl does not look for page frames in KORVO_SHARE: $(cat "$log")"
"$scratch/build/bin/korvo-commmgr" nobody >/dev/null 2>"$log"
grep -qF "'$home/etc/korvo.conf'" "$log" || fault "the daemon looks elsewhere: $(cat "$log")"

echo 'a folder that moves, and one that is none'
run cmake -S "$sources" -B "$scratch/build" -DKORVO_HOME="$scratch/moved"
grep -qxF "CMAKE_INSTALL_PREFIX:PATH=$scratch/moved" "$scratch/build/CMakeCache.txt" || fault 'the prefix does not follow KORVO_HOME'
cmake -S "$sources" -B "$scratch/build" -DKORVO_HOME=opt/korvo >"$log" 2>&1 && fault 'a path that is not absolute is not refused'
tr -s ' \n' ' ' <"$log" | grep -qF "KORVO_HOME takes the path of a folder from the root on, in letters, digits and _ . + -, not 'opt/korvo'" ||
  fault "the reason why a path is refused is missing: $(cat "$log")"
exit $status
