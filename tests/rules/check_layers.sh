#!/bin/sh
# check_layers.sh: no module uses what its layer must not use. Prints every line that does.
set -u
cd "$(dirname "$0")/../.." || exit

broken=0

# refuse RULE PATTERN FILE...: no line of these files may match.
refuse() {
    rule=$1
    pattern=$2
    shift 2
    found=$(grep -nHE -- "$pattern" "$@" /dev/null) || return 0
    printf '%s:\n%s\n' "$rule" "$found"
    broken=1
}

files_in() {
    find "$@" \( -name '*.h' -o -name '*.cpp' \) | sort
}

common=$(files_in common)
connection=$(files_in ChangerServerConnectionLib)
fsclient=$(files_in fsclient)
daemon="$common $connection $fsclient $(files_in trayprobed)"
platform=$(files_in platform/linux)
changerctl=$(files_in changerctl)
beside=$(files_in simulator testbed tools)

before_a_comment='^([^/]|/[^/*])*'

# shellcheck disable=SC2086 # the lists must be split; no file name has a blank
{
    refuse 'The daemon names no operating system' '[Ll]inux|__APPLE__|_WIN32' $daemon
    refuse 'The daemon has no conditional compilation' '^ *# *(if|ifdef|elif) ' $daemon
    refuse 'The daemon has no classes' '^ *(class |virtual |(public|protected|private):)' $daemon
    refuse 'The daemon has no exceptions' \
        "$before_a_comment"'\b(throw\b|(try|catch) *[({])' $daemon
    refuse 'The platform does not mention changers' '[Cc]hanger|[Cc]arousel|[Tt]rayprobed' $platform

    refuse 'platform imports upwards' \
        '#include "(common|ChangerServerConnectionLib|fsclient|trayprobed)/' $platform
    refuse 'common imports upwards' \
        '#include "(ChangerServerConnectionLib|fsclient|trayprobed)/' $common
    refuse 'ChangerServerConnectionLib imports sideways or upwards' \
        '#include "(fsclient|trayprobed)/' $connection
    refuse 'fsclient imports sideways or upwards' \
        '#include "(ChangerServerConnectionLib|trayprobed)/' $fsclient
    refuse 'changerctl imports sideways' '#include "(fsclient|trayprobed|simulator|testbed)/' $changerctl
    refuse 'A module includes headers of changerctl' '#include "changerctl/' $daemon $platform
    refuse 'A program beside the daemon includes its headers' \
        '#include ["<](common|ChangerServerConnectionLib|fsclient|trayprobed|changerctl|CoreFoundation|DiskArbitration)/' \
        $beside
}

[ $broken -eq 0 ] && echo 'No rule is broken.'
exit $broken
