#!/bin/sh
# check_command.sh COMMAND DAEMON_LIBRARY: the companion command contains no function or variable that
# the daemon's own modules define.
set -eu

# symbols_of FILE: the names that the file defines for others.
symbols_of() {
    nm --defined-only --extern-only --format=posix "$1" | awk '$2 ~ /^[TDBR]$/ { print $1 }' |
        sort -u
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
symbols_of "$1" >"$scratch/command"
symbols_of "$2" >"$scratch/daemon"
[ -s "$scratch/command" ] && [ -s "$scratch/daemon" ]
shared=$(comm -12 "$scratch/command" "$scratch/daemon")
if [ -n "$shared" ]; then
    echo "of the daemon: $shared"
    exit 1
fi
echo 'The command contains nothing of the daemon.'
