#!/usr/bin/env bash
# tests/debian/run.sh RELEASE [USER [COMMAND]]   runs ./check.sh and ./demo.sh, or COMMAND, on a Debian with nothing installed
#
# As root, e.g. tests/debian/run.sh trixie.  debootstrap makes the release in a folder, from the mirror that this machine's apt
# uses.  There what is committed here stands in a path with a blank, and USER, an ordinary one with sudo where none is given,
# runs them with no more rights and open files than a login shell may leave him.  USER may be root.
set -eu -o pipefail
cd "$(dirname "$0")/../.."
. scripts/need.sh
release=${1:?usage: tests/debian/run.sh RELEASE [USER [COMMAND]]}
user=${2-dweller}
command=${3-./check.sh && ./demo.sh}
need debootstrap
# shellcheck disable=SC2016  # the words of apt-get
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Identifier: Packages' 'Label: Debian' | head -n1)

root=$(mktemp -d /var/tmp/korvo-debian.XXXXXX)  # /tmp may not allow devices
trap 'rm -rf --one-file-system "$root" "$root.log"' EXIT
chmod 755 "$root"
echo "Making $release"
debootstrap --variant=minbase --include=sudo "$release" "$root" "$mirror" >"$root.log" || {
  cat "$root.log" >&2
  exit 70
}
printf '127.0.0.1 localhost %s\n' "$(hostname)" >"$root/etc/hosts"
if [ "$user" != root ]; then
  chroot "$root" useradd --create-home --shell /bin/bash "$user"
  echo "$user ALL=(ALL) NOPASSWD: ALL" >"$root/etc/sudoers.d/$user"
fi
home=$(chroot "$root" sh -c "echo ~$user")
mkdir "$root$home/a checkout"
git archive HEAD | tar -x -C "$root$home/a checkout"
chroot "$root" chown -R "$user:" "$home"

# Mounts and processes end with the namespaces, so that nothing but the folder is left to remove.
# shellcheck disable=SC2016  # the inner shell's
unshare --mount --pid --fork --kill-child --propagation private bash -eu -o pipefail -c '
  mount --bind "$1" "$1"  # what mounts for itself, as some tests do, wants a mount at its root
  mount -t proc proc "$1/proc"
  mount --rbind /dev "$1/dev"
  mount -t devpts -o newinstance,ptmxmode=666 devpts "$1/dev/pts"
  exec chroot "$1" su - "$2" -c "umask 077; ulimit -n 1024; cd \"a checkout\"; $3"
' bash "$root" "$user" "$command"
