#!/bin/sh
# drain.sh connections SECONDS PID   ends a Communications Manager, and waits for the connections that it has in hand
# drain.sh workers SECONDS PID       ends a manager after the requests that its workers have in hand
#
# Waits no longer than that.  Without PID the program has ended by itself, and nothing is left to wait for.
set -u
tenths=$(($2 * 10))
main=${3-}
[ -n "$main" ] || exit 0

# The living children; a dead one is a zombie as long as the main process is held.
workers() {
  for process in /proc/[0-9]*; do
    read -r stat <"$process/stat" || continue
    # shellcheck disable=SC2086  # the words behind the name: state, parent
    set -- ${stat##*) }
    [ "$1" = Z ] || [ "$2" != "$main" ] || echo "${process#/proc/}"
  done 2>/dev/null
}

# False: the time is over.
pause() {
  [ $tenths -gt 0 ] || return 1
  sleep 0.1
  tenths=$((tenths - 1))
}

case $1 in
  connections) # They have processes of their own in the group, which outlive the main one.
    kill -s TERM "$main"
    while kill -s 0 -- "-$main" 2>/dev/null && pause; do :; done
    ;;
  workers) # SIGHUP ends a worker after the request in hand; a main process that is held replaces none.
    kill -s STOP "$main"
    for worker in $(workers); do kill -s HUP "$worker"; done
    while [ -n "$(workers)" ] && pause; do :; done
    kill -s TERM "$main"
    kill -s CONT "$main"
    ;;
esac
exit 0
