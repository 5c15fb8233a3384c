#!/bin/sh
# check_tidy.sh BUILD: clang-tidy has no complaint about anything but the tests. What is installed is
# analysed, too, which takes longer. BUILD is the folder with compile_commands.json.
set -eu
build=$1
cd "$(dirname "$0")/../.."

# tidy CHECKS FOLDER...: CHECKS are added to those of .clang-tidy.
tidy() {
    checks=$1
    shift
    find "$@" -name '*.cpp' -print0 |
        xargs -0 -n 2 -P "$(nproc)" clang-tidy-19 -p "$build" --quiet --checks="$checks"
}

tidy 'clang-analyzer-*' common ChangerServerConnectionLib fsclient trayprobed platform
tidy '' simulator testbed tools bench
