#!/usr/bin/env bash
# Fails when a folder includes one that it may not know.  Run from the root.
set -eu
may() {  # may FOLDER ALLOWED...
  local folder=$1 allowed
  shift
  allowed=$(printf '%s|' "$folder" "$@")
  if grep -rnE '^#include "' "$folder" --include='*.h' --include='*.cpp' | grep -vE "#include \"(${allowed%|})/"; then
    echo "$folder/ may include only: $folder $*" >&2
    status=1
  fi
}
status=0
may net debug
may protocol net debug
may config protocol net debug
may macro protocol debug
may core config protocol net debug
may commmgr core macro config protocol net debug
may store config protocol net debug
may index store config protocol net debug tools/common
may manager store core config protocol net debug
may searchmgr manager store core config protocol net debug
may docmgr manager store core config protocol net debug
may engine store core config protocol net debug
may web protocol debug tools/common
may tools macro config protocol net debug
# The log's core needs no socket; the collector beside it does.
grep -rnE '^#include "' debug | grep -vE '^debug/collector|#include "debug/' && status=1
exit $status
