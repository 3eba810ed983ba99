#!/usr/bin/env bash
# tests/check_demo.sh BUILD   fails when a line that ./demo.sh --keep prints does not work as it stands
#
# BUILD is build/release.  The demonstration runs in a folder whose name holds a blank, over programs that are built already.
set -eu -o pipefail
cd "$(dirname "$0")/.."
build=$(realpath "$1")
scratch=$(mktemp -d)
checkout="$scratch/a checkout"
ports=()
folder=
web=
clean_up() {
  for port in "${ports[@]}"; do "$build/bin/korvoctl" shutdown --port "$port" 2>/dev/null || true; done
  [ -z "$web" ] || kill "$web" 2>/dev/null || true
  rm -rf "$scratch" "$folder"
}
trap clean_up EXIT

fail() {
  echo "check_demo: $1" >&2
  exit 1
}

mkdir -p "$checkout/build" "$checkout/scripts"
ln -s "$PWD"/{demo.sh,demo,share,tools} "$checkout"
ln -s "$build" "$checkout/build/release"
printf '%s\n' 'need() { :; }' 'build() { :; }' 'build_packages=()' >"$checkout/scripts/need.sh"
# Over engines, with one that is killed: what each search shows.
"$checkout/demo.sh" --engines 2 >"$scratch/engines"
for shown in 'shards=2/2' 'shards=1/2' '<mark>' 'shared\ library' 'Section=admin' 'SORT=-Installed-Size' 'FIRSTHIT=3' 'Stopped.'; do
  grep -qF -- "$shown" "$scratch/engines" || fail "over engines shows no $shown: $(cat "$scratch/engines")"
done

"$checkout/demo.sh" --keep >"$scratch/said"

mapfile -t try < <(sed -n '/^The service is up/,/^Stop it/s/^  //p' "$scratch/said")
stop=$(sed -n '/^Stop it/,$s/^  //p' "$scratch/said")
[[ $stop =~ in\ ([0-9 ]+)\; ]] && read -ra ports <<<"${BASH_REMATCH[1]}"
[[ $stop =~ kill\ ([0-9]+) ]] && web=${BASH_REMATCH[1]}
[[ $stop =~ /tmp/korvo-demo\.[A-Za-z0-9]+ ]] && folder=${BASH_REMATCH[0]}
if [ ${#ports[@]} -ne 3 ] || [ ${#try[@]} -ne 5 ] || [ ! -d "$folder" ]; then
  fail "prints other lines: $(cat "$scratch/said")"
fi

address=$(sed -n 's/^In a browser: //p' "$scratch/said")
page=$(curl -sf "${address}search?q=library") || fail "answers nothing at $address"
[[ $page == *'<li value="1">'* ]] || fail "has no hits at $address: $page"

# Each line alone, but for the one that opens the connection of the next.
for line in "${try[@]:0:3}" "${try[3]}"$'\n'"${try[4]}"; do
  answer=$(bash -eu -o pipefail -c "$line" 2>&1) || fail "fails: $line: $answer"
  [ -n "$answer" ] || fail "says nothing: $line"
done

# While the tools cannot be found, nothing is stopped and so nothing may be removed.
mv "$checkout" "$scratch/elsewhere"
! bash -c "$stop" 2>/dev/null || fail "succeeds without having stopped anything: $stop"
[ -d "$folder" ] || fail "removes the folder of a service that runs on: $stop"
mv "$scratch/elsewhere" "$checkout"

bash -c "$stop" || fail "fails: $stop"
[ ! -e "$folder" ] || fail "leaves the folder: $stop"
web=
for port in "${ports[@]}"; do
  while "$build/bin/korvoctl" ping --port "$port" --timeout 1 >/dev/null 2>&1; do sleep 0.05; done
done
