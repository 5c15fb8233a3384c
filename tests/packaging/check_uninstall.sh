#!/bin/sh
# check_uninstall.sh BUILD: installs the build into a temporary root, then checks that scripts/uninstall
# removes each file and no file of others.
set -eu
build=$1
cd "$(dirname "$0")/../.."

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
export DESTDIR="$root"
cmake --install "$build"
program=$(find "$root" -type f -name trayprobed)
touch "${program%/*}/of-others"

scripts/uninstall "$build"
left=$(find "$root" ! -type d -o -name '*trayprobed*')
echo "left: $left"
[ "$left" = "${program%/*}/of-others" ]

# Nothing was installed from a directory without a list of files.
if scripts/uninstall "$root" 2>"$root/errors"; then
    exit 1
fi
grep 'nothing was installed' "$root/errors"
