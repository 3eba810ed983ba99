#!/bin/sh
# drain.sh connections SECONDS PID   ends a Communications Manager, and waits for the connections that it has in hand
# drain.sh workers SECONDS PID       ends a manager after the requests that its workers have in hand
#
# Waits no longer than that.  Without PID the program has ended by itself, and nothing is left to wait for.
set -u
# shellcheck disable=SC2317  # await calls what it is given
kind=$1
tenths=$(($2 * 10))
main=${3-}
[ -n "$main" ] || exit 0

# Connections have processes of their own in the group, which outlive the main one.
connections() { kill -s 0 -- "-$main" 2>/dev/null; }

# The living children; a dead one is a zombie as long as the main process is held.
children() {
  for process in /proc/[0-9]*; do
    read -r stat <"$process/stat" || continue
    # shellcheck disable=SC2086  # the words behind the name: state, parent
    set -- ${stat##*) }
    [ "$1" = Z ] || [ "$2" != "$main" ] || echo "${process#/proc/}"
  done 2>/dev/null
}
workers() { [ -n "$(children)" ]; }

await() { # await COMMAND: until it fails, or the time is over
  while [ $tenths -gt 0 ] && "$1"; do
    sleep 0.1
    tenths=$((tenths - 1))
  done
}

case $kind in
  connections)
    kill -s TERM "$main"
    await connections
    ;;
  workers) # SIGHUP ends a worker after the request in hand; a main process that is held replaces none.
    kill -s STOP "$main"
    for worker in $(children); do kill -s HUP "$worker"; done
    await workers
    kill -s TERM "$main"
    kill -s CONT "$main"
    ;;
esac
exit 0
