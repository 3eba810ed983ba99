#!/usr/bin/env bash
# tests/security/fences.sh [BUILD [NAME]]   puts up each fence of SECURITY.md, or that one, and fails if one does not hold
#
# BUILD is build/release.  trials.sh runs over a copy of the service in mount, network and process namespaces that end with
# it, and leaves the machine as it is.  Where that cannot be done, a line says why and the status is 77.
set -eu -o pipefail
cd "$(dirname "$0")/../.."
. scripts/need.sh
build=${1-build/release}
umask 022  # the service reads as another user what is laid down here

skip() {
  echo "fences: skipped: $1"
  exit 77
}

[ "$(id -u)" -eq 0 ] || skip "they need root"
namespaces=(unshare --mount --net --pid --uts --ipc --fork --kill-child --mount-proc --propagation private)
"${namespaces[@]}" true 2>/dev/null || skip "this machine makes no namespaces"
(need iproute2 nftables) || skip "they need the packages iproute2 and nftables"

# What the trials see in place of the machine's own: /usr/local, /srv and /etc.
scratch=$(mktemp -d)
group=
give_back() {
  rm -rf "$scratch"
  [ -z "$group" ] || find "$group" -depth -type d -exec rmdir {} +
}
trap give_back EXIT
mkdir -p "$scratch/local/korvo/"{bin,etc,lib} "$scratch/srv" "$scratch/etc"
cp "$build/bin/"{korvo-commmgr,korvo-query,korvoctl} "$scratch/local/korvo/bin"
cp -a /etc/. "$scratch/etc"
cp SECURITY.md docs/examples/operation/firewall.nft tests/security/trials.sh "$scratch"
for page in "$scratch/local/korvo/lib/page" "$scratch/srv/private"; do
  "$build/bin/korvo-macro" asm tools/macro/examples/package.ms -o "$page.mo"
done
chmod -R a+rX "$scratch/local" "$scratch/srv"

# A control group for the systemd of the trials, which takes the one that it finds itself in for the machine's.
groups=$(awk '$3 == "cgroup2" { print $2; exit }' /proc/mounts)
if [ -n "$groups" ] && mkdir "$groups/korvo-fences.$$" 2>/dev/null; then
  group=$groups/korvo-fences.$$
fi
(
  [ -z "$group" ] || echo "$BASHPID" >"$group/cgroup.procs"
  exec "${namespaces[@]}" bash "$scratch/trials.sh" "$scratch" "$group" "${2-}"
)
