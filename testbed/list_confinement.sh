#!/bin/sh
# list_confinement.sh UNIT: prints a C++ header with what the systemd unit permits and denies: the
# capabilities of its service, and the system calls of its deny list with all groups ("@mount")
# expanded.
set -eu
unit=$1

# value_of SETTING: the setting's value in the unit.
value_of() {
    sed -n "s/^$1=//p" "$unit"
}

# expand NAME...: the system calls; a group may name other groups.
expand() {
    for name in "$@"; do
        case $name in
        @*)
            group=$(systemd-analyze syscall-filter "$name" | sed -n 's/^ \+\([@a-z_0-9]\+\)$/\1/p')
            # shellcheck disable=SC2086 # a list of words
            expand $group
            ;;
        *) echo "$name" ;;
        esac
    done
}

denied=$(value_of SystemCallFilter)
echo 'inline const std::vector<cap_value_t> kCapabilities = {'
value_of AmbientCapabilities | tr ' ' '\n' | sed 's/.\+/    &,/'
echo '};'
echo 'inline const std::vector<const char*> kDeniedCalls = {'
# shellcheck disable=SC2086 # a list of words
expand ${denied#\~} | sort -u | sed 's/.*/    "&",/'
echo '};'
