#!/usr/bin/env bash
# ./package.sh [RELEASE]   makes the Debian packages of the last commit and tries them, as root or with sudo
#
# RELEASE is bookworm or trixie, by default that of this machine.  All happens in folders that debootstrap makes, from the mirror
# that this machine's apt uses; they go when it ends, and build/debian keeps what debootstrap has fetched.  The packages are
# left in build/packages; on amd64 the daemon of 32 bits in build/packages/i386, where no pattern for the others finds it.
set -eu -o pipefail
cd "$(dirname "$0")"
. scripts/need.sh
[ "$(id -u)" -eq 0 ] || exec sudo "$PWD/package.sh" "$@"
release=${1-$(. /etc/os-release && echo "$VERSION_CODENAME")}
need debootstrap procps
# shellcheck disable=SC2016  # the words of apt-get
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Identifier: Packages' 'Label: Debian' | head -n1)
umask 022

packages=$PWD/build/packages
folder=$(mktemp -d /var/tmp/korvo-package.XXXXXX)  # /tmp may not allow devices
group=
outer=
give_back() {
  [ -z "$outer" ] || kill -KILL "$outer" 2>/dev/null || true
  wait || true
  rm -rf --one-file-system "$folder"
  [ -z "$group" ] || find "$group" -depth -type d -exec rmdir {} + 2>/dev/null || true
}
trap give_back EXIT

# quietly LOG COMMAND...: shows what it says only when it fails.
quietly() {
  local log=$folder/$1.log
  shift
  "$@" >"$log" 2>&1 </dev/null || {
    cat "$log" >&2
    echo "package.sh: failed: $*" >&2
    exit 70
  }
}

# debian NAME ARCH: a Debian with nothing installed, in $folder/NAME.
debian() {
  local kept=$PWD/build/debian/$release-$2.tar
  if [ ! -e "$kept" ]; then
    mkdir -p build/debian
    echo "Making $release for $2"
    quietly debootstrap debootstrap --variant=minbase --arch="$2" "$release" "$folder/new" "$mirror"
    tar -C "$folder/new" -cf "$kept.new" . && mv "$kept.new" "$kept"
    rm -rf --one-file-system "$folder/new"
  fi
  mkdir -p "$folder/$1"
  tar -C "$folder/$1" -xf "$kept"
  echo force-unsafe-io >"$folder/$1/etc/dpkg/dpkg.cfg.d/trial"  # it need not outlive a power cut
  printf '127.0.0.1 localhost %s\n' "$(hostname)" >"$folder/$1/etc/hosts"
}

# inside NAME COMMAND...: in that Debian.  Mounts and processes end with the namespaces.
# shellcheck disable=SC2016  # the inner shell's
inside() {
  local name=$1
  shift
  unshare --mount --pid --fork --kill-child --propagation private bash -eu -o pipefail -c '
    mount --bind "$1" "$1"  # what mounts for itself wants a mount at its root
    mount -t proc proc "$1/proc"
    mount --rbind /dev "$1/dev"
    mount -t devpts -o newinstance,ptmxmode=666 devpts "$1/dev/pts"
    exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C chroot "$@"
  ' bash "$folder/$name" "$@"
}

# make_packages ARCH PROFILES FOLDER: into that folder.
# shellcheck disable=SC2016  # the inner shell's
make_packages() {
  echo "Making the packages of $1"
  debian "make-$1" "$1"
  mkdir "$folder/make-$1/korvo"
  git archive HEAD | tar -x -C "$folder/make-$1/korvo"
  quietly "make-$1" inside "make-$1" bash -eu -c '
    export DEBIAN_FRONTEND=noninteractive DEB_BUILD_PROFILES=$1 DEB_BUILD_OPTIONS="parallel=$2 noautodbgsym"
    cd /korvo
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends dpkg-dev fakeroot
    apt-get build-dep -y -qq --no-install-recommends ./
    dpkg-buildpackage -b -uc
  ' bash "$2" "$(nproc)"
  mkdir -p "$3"
  cp "$folder/make-$1"/korvo*.deb "$3"
}

# judge ARCH: lintian finds nothing that has no reason.
judge() {
  echo "Looking at the packages of $1"
  quietly "get-lintian-$1" inside "make-$1" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends lintian
  quietly "lintian-$1" inside "make-$1" bash -c '
    useradd judge && su judge -c "lintian --fail-on error,warning /korvo_*.changes"'
}

# lay_out ARCH NAME: a Debian with all that is left in build/packages, and the trial.
lay_out() {
  debian "$2" "$1"
  cp -r "$packages" "$folder/$2/packages"
  cp README.md packaging/trial.sh packaging/faults.sh tests/links.sh debian/tests/service "$folder/$2"
}

# A control group for the systemd of the trial, which takes the one that it finds itself in for the machine's.
find_group() {
  local groups
  groups=$(awk '$3 == "cgroup2" { print $2; exit }' /proc/mounts)
  [ -n "$groups" ] && mkdir "$groups/korvo-package.$$" 2>/dev/null && group=$groups/korvo-package.$$
}

# boot NAME: starts its systemd, in namespaces that end with it, and sets systemd to its process.
# shellcheck disable=SC2016  # the inner shell's
boot() {
  (
    echo "$BASHPID" >"$group/cgroup.procs"
    exec unshare --mount --net --pid --uts --ipc --cgroup --fork --kill-child --propagation private bash -eu -c '
      mount --bind "$1" "$1"
      cd "$1"
      mount -t proc proc proc
      mount -t sysfs -o ro sysfs sys
      mount -t cgroup2 none sys/fs/cgroup
      mount -t tmpfs -o mode=755 tmpfs run
      mount -t tmpfs -o mode=755 tmpfs dev
      for device in null zero full random urandom tty; do
        touch "dev/$device"
        mount --bind "/dev/$device" "dev/$device"
      done
      mkdir dev/pts dev/shm
      mount -t devpts -o newinstance,ptmxmode=666 devpts dev/pts
      ln -s pts/ptmx dev/ptmx
      mkdir run/old
      pivot_root . run/old
      umount -l /run/old
      exec env -i container=trial PATH=/usr/sbin:/usr/bin:/sbin:/bin /lib/systemd/systemd --system --unit=multi-user.target
    ' bash "$folder/$1"
  ) >"$folder/boot.log" 2>&1 </dev/null &
  outer=$!
  local tries
  for ((tries = 0; tries < 300; tries++)); do
    systemd=$(pgrep -P $outer) || true
    [ -z "$systemd" ] || ! asked=$(booted systemctl show -P Version 2>&1) || return 0
    sleep 0.1
  done
  echo "package.sh: systemd does not start: $asked" >&2
  cat "$folder/boot.log" >&2
  exit 70
}
booted() { nsenter --target "$systemd" --all env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C "$@"; }

rm -rf "$packages"
arch=$(dpkg --print-architecture)
make_packages "$arch" '' "$packages"
judge "$arch"
if [ "$arch" = amd64 ]; then
  make_packages i386 pkg.korvo.daemon "$packages/i386"
  judge i386
fi

echo "Trying them where no systemd runs"
lay_out "$arch" plain
inside plain /trial.sh plain

if find_group; then
  echo "Trying them under systemd"
  lay_out "$arch" booted
  inside booted /trial.sh prepare
  boot booted
  quietly service booted /service
  booted /trial.sh faults
  cp "$folder/booted/faults.md" "$packages"
  booted /trial.sh booted
  booted systemctl --force --force poweroff || true
  wait || true
  outer=
else
  echo "They were not tried under systemd, for this machine gives it no control group."
fi

if [ "$arch" = amd64 ]; then
  echo "Trying the daemon of 32 bits"
  lay_out i386 daemon
  inside daemon /trial.sh daemon
fi
echo
ls -lR "$packages"
echo "The packages passed their trial."
