#!/usr/bin/env bash
# check_hardening.sh PROGRAM: fails when a released program lacks one of its defences.
set -u
export LC_ALL=C  # readelf is translated
program=$1
status=0
want() {  # want WHAT PATTERN: a line of the last output that matches
  grep -qE "$2" <<<"$output" && return
  echo "$program: $1 is missing" >&2
  status=1
}
output=$(readelf -hW "$program")
want 'position independence' 'Type: +DYN'
output=$(readelf -lW "$program")
want 'a read-only relocation area' 'GNU_RELRO'
want 'a stack that cannot be executed' 'GNU_STACK .* RW +0x'
output=$(readelf -dW "$program")
want 'binding at the start' 'FLAGS_1.*NOW'
output=$(nm "$program")
want 'the stack protector' '__stack_chk_fail'
want 'checked copies' '__(v?snprintf|memcpy|memset|read|recv)_chk'
exit $status
