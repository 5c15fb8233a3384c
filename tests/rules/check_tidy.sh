#!/bin/sh
# check_tidy.sh BUILD: clang-tidy has no warning for any source outside tests. BUILD is the folder
# with compile_commands.json.
set -eu
build=$1
cd "$(dirname "$0")/../.."
find common ChangerServerConnectionLib fsclient trayprobed platform changerctl simulator testbed tools bench \
    -name '*.cpp' -print0 |
    xargs -0 -n 4 -P "$(nproc)" clang-tidy-19 -p "$build" --quiet
echo 'clang-tidy has no warning.'
