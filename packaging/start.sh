#!/bin/sh
# start.sh PROGRAM ID TYPE   becomes the program of that id, unless its configuration is wrong
#
# Not in ExecStartPre=, of which RestartPreventExitStatus= takes no notice: hundreds of starts more would end in a
# status that has the reason no longer.
/usr/bin/korvoctl check "$2:$3" --dir /etc/korvo
status=$?
# What would only be better otherwise, such as a database that is not there yet, is 1.
[ $status -le 1 ] || exit $status
exec "$1" "$2" /etc/korvo
