#!/bin/sh
# check_format.sh: every header and source has the layout of clang-format and .clang-format.
set -eu
cd "$(dirname "$0")/../.."
find common ChangerServerConnectionLib fsclient trayprobed platform changerctl simulator testbed tools bench tests \
    \( -name '*.h' -o -name '*.cpp' \) -print0 |
    xargs -0 clang-format-19 --dry-run --Werror
echo 'All files are formatted.'
