#!/bin/sh
# check_packages.sh DIRECTORY: builds the Debian packages twice, below directories of different names: they
# must be equal, lintian must have no remark, and packages, command and pages must tell the same version.
set -eu
directory=$1
cd "$(dirname "$0")/../.."
unset CXX # Debian's packages are built by its own compiler

fail() {
    echo "$*"
    exit 1
}
scripts/package "$directory/one"
scripts/package "$directory/another-one"
for package in "$directory"/one/*.deb; do
    cmp "$package" "$directory/another-one/${package##*/}"
done

root=$directory/root
rm -rf "$root" "$directory/versions"
for package in "$directory"/one/*.deb; do
    dpkg-deb --extract "$package" "$root"
    dpkg-deb --field "$package" Version >>"$directory/versions"
done
version=$("$root/usr/bin/changerctl" --version | sed 's/^changerctl //')
[ "$(sort -u "$directory/versions")" = "$version" ] || fail "not all packages have the version $version"
for page in man8/trayprobed.8 man1/changerctl.1; do
    zcat "$root/usr/share/man/$page.gz" | grep -qF "\"trayprobed $version\"" || fail "$page: not $version"
done
