# shellcheck shell=bash
# bench/group.sh: control groups that keep the processor time of what is measured.  Sourced.

# make_group NAME: one for a server and all its children; its folder goes to $folder/NAME.group and
# to the list groups.  Nothing where this user may not make one.
make_group() {
  local type path mount group
  for type in cgroup2 cpuacct; do
    mount=$(awk -v type=$type '$3 == type || ($3 == "cgroup" && $4 ~ type) { print $2; exit }' /proc/mounts)
    path=$(awk -F: -v type=$type '(type == "cgroup2" && $1 == 0) || $2 ~ type { print $3; exit }' /proc/self/cgroup)
    group=$mount${path%/}/korvo-bench.$$.$1
    [ -n "$mount" ] || continue
    mkdir "$group" 2>/dev/null || continue
    groups+=("$group")
    if (echo "$BASHPID" >"$group/cgroup.procs") 2>/dev/null; then
      # shellcheck disable=SC2154  # of the one who sources this
      echo "$group" >"$folder/$1.group"
      return
    fi
  done
}
