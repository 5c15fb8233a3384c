#!/bin/sh
# check_hardening.sh BINARY: the built daemon carries each protection that it was asked to have.
set -u
binary=$1
broken=0

# expect WHAT COMMAND...: the command must succeed.
expect() {
    what=$1
    shift
    "$@" >/dev/null 2>&1 && return 0
    echo "missing: $what"
    broken=1
}

headers=$(readelf --wide --file-header --program-headers --dynamic "$binary")
imports=$(nm --dynamic --undefined-only "$binary")
producers=$(readelf --wide --debug-dump=info "$binary" | grep DW_AT_producer)

says() { printf '%s\n' "$1" | grep -qE -- "$2"; }
lacks() { ! says "$1" "$2"; }
# Of each of the daemon's own sources, not only of some.
every_source_has() { [ -n "$producers" ] && ! printf '%s\n' "$producers" | grep -vq -- "$1"; }
main_marks_its_entry() {
    objdump --disassemble=main "$binary" | grep -A 1 '<main>:' | grep -q endbr64
}

expect 'position independence' says "$headers" 'FLAGS_1.*\bPIE\b'
expect 'read-only relocations' says "$headers" 'GNU_RELRO'
expect 'immediate binding' says "$headers" 'FLAGS_1.*\bNOW\b'
expect 'a stack without code' says "$headers" 'GNU_STACK.* RW +0x'
expect 'canaries' says "$imports" '__stack_chk_fail'
expect 'canaries in every source' every_source_has '-fstack-protector-strong'
expect 'probed stack growth in every source' every_source_has '-fstack-clash-protection'
expect 'checked library calls' says "$imports" '__v?snprintf_chk'
# Registering the destructor of a thread_local object ends the process when memory is out.
expect 'a program without thread-local destructors' lacks "$imports" '__cxa_thread_atexit'
if says "$headers" 'Machine:.*X86-64'; then
    expect 'control-flow protection in every source' every_source_has '-fcf-protection=full'
    expect 'marked entries' main_marks_its_entry
fi

[ $broken -eq 0 ] && echo 'All protections are there.'
exit $broken
