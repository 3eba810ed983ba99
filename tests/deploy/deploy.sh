#!/usr/bin/env bash
# tests/deploy/deploy.sh BUILD   starts the services of korvo-deploy(7) as it says and fails if one does not do what it says
#
# BUILD is build/release.  machines.sh runs over an installation in namespaces that end with it, each machine in a network
# namespace of its own.  Where that cannot be done, a line says why and the status is 77.
set -eu -o pipefail
cd "$(dirname "$0")/../.."
. scripts/need.sh
build=$1
umask 022

skip() {
  echo "deploy: skipped: $1"
  exit 77
}

[ "$(id -u)" -eq 0 ] || skip "it needs root"
namespaces=(unshare --mount --net --pid --uts --ipc --fork --kill-child --mount-proc --propagation private)
"${namespaces[@]}" true 2>/dev/null || skip "this machine makes no namespaces"
(need iproute2 curl xapian-tools) || skip "it needs the packages iproute2, curl and xapian-tools"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
DESTDIR=$scratch cmake --install "$build" >"$scratch/log" || { cat "$scratch/log" >&2; exit 1; }
cp docs/korvo-deploy.7 docs/examples/operation/korvo-watch.service tests/deploy/machines.sh demo/packages.schema "$scratch"
"${namespaces[@]}" bash "$scratch/machines.sh" "$scratch"
