#!/usr/bin/env bash
# tests/browser/run.sh BUILD [CASE...]   uses the page of korvo-web in Chromium as a person would, and through nginx, Apache and lighttpd
#
# BUILD is build/release.  Installs what is missing from Debian's packages.
set -eu -o pipefail
cd "$(dirname "$0")/../.."
. scripts/need.sh
need chromium chromium-driver curl openssl python3-selenium tidy
python=/usr/bin/python3  # that of those packages
$python tests/browser/browser_test.py "$@"
[ $# -gt 1 ] || $python tests/browser/fronts_test.py "$1"
