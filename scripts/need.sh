# shellcheck shell=bash
# scripts/need.sh: installs Debian packages that are missing.  Sourced by the scripts at the root.

# need PACKAGE...: installs what is missing of them and says so; as root, or with sudo.
need() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  local become=()
  [ "$(id -u)" -eq 0 ] || become=(sudo)
  echo "Installing: ${missing[*]}"
  if ! { "${become[@]}" apt-get update -qq &&
    "${become[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
      "${missing[@]}" >/dev/null; }; then
    echo "$0: cannot install ${missing[*]}; install them by hand and try again" >&2
    exit 69
  fi
}

# shellcheck disable=SC2034  # for those who source this
build_packages=(cmake curl g++ googletest libcsv-dev liblzma-dev libmicrohttpd-dev libxapian-dev ninja-build nlohmann-json3-dev pkg-config python3 xapian-omega xapian-tools zlib1g-dev)

# build PRESET [TARGET...]: configures and builds; shows the output only when it fails.
build() {
  local preset=$1 log=build/$1.log
  shift
  mkdir -p build
  echo "Building $preset"
  { cmake --preset "$preset" && cmake --build --preset "$preset" -j"$(nproc)" ${1+--target "$@"}; } \
    >"$log" 2>&1 || {
    cat "$log" >&2
    echo "$0: the build of preset $preset failed" >&2
    exit 70
  }
}
