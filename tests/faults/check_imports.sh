#!/bin/sh
# check_imports.sh BINARY: each function that the daemon imports stands in Calls.def, is wrapped in
# AllocationFaults.cpp, or stands in NotInjected.txt with the reason.
set -euf
binary=$(realpath "$1")
cd "$(dirname "$0")"
known=$(sed -n 's/^[A-Z_]*(\([A-Za-z0-9_]*\),.*/\1/p' Calls.def
        sed -n 's/.* \**__wrap_\([a-z]*\)(.*/\1/p' AllocationFaults.cpp
        sed -n 's/^\([^# ]\{1,\}\)  *[^ ].*/\1/p' NotInjected.txt)
imports=$(nm --dynamic --undefined-only "$binary" | sed 's/.* //; s/@.*//')

stands() {
    for pattern in $known; do
        # shellcheck disable=SC2254 # a pattern
        case $1 in $pattern) return 0 ;; esac
    done
    return 1
}

broken=0
for import in $imports; do
    stands "$import" && continue
    echo "$import: add it to Calls.def or to NotInjected.txt"
    broken=1
done
[ $broken -eq 0 ] && echo "Each of $(echo "$imports" | wc -l) imports is accounted for."
exit $broken
