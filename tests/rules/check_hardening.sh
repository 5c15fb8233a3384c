#!/bin/sh
# check_hardening.sh BINARY: the built daemon has each protection of the compiler and linker flags.
# shellcheck disable=SC2317 # functions that expect() calls
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

has() { printf '%s\n' "$1" | grep -qE -- "$2"; }
lacks() { ! has "$1" "$2"; }
# True if all of the daemon's own sources, not only some, were compiled with the flag.
every_source_has() { [ -n "$producers" ] && ! printf '%s\n' "$producers" | grep -vq -- "$1"; }
main_begins_with_endbr64() {
    objdump --disassemble=main "$binary" | grep -A 1 '<main>:' | grep -q endbr64
}

expect 'position independence' has "$headers" 'FLAGS_1.*\bPIE\b'
expect 'read-only relocations' has "$headers" 'GNU_RELRO'
expect 'immediate binding' has "$headers" 'FLAGS_1.*\bNOW\b'
expect 'a non-executable stack' has "$headers" 'GNU_STACK.* RW +0x'
expect 'stack protector' has "$imports" '__stack_chk_fail'
expect 'stack protector in every source' every_source_has '-fstack-protector-strong'
expect 'stack clash protection in every source' every_source_has '-fstack-clash-protection'
expect 'fortified library calls' has "$imports" '__v?snprintf_chk'
# The registration of such a destructor ends the process when memory is short.
expect 'a program without thread-local destructors' lacks "$imports" '__cxa_thread_atexit'
if has "$headers" 'Machine:.*X86-64'; then
    expect 'control-flow protection in every source' every_source_has '-fcf-protection=full'
    expect 'endbr64 at function entries' main_begins_with_endbr64
fi

[ $broken -eq 0 ] && echo 'No protection is missing.'
exit $broken
