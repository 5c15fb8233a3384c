#!/bin/sh
# package_test.sh: run as root on a freshly booted Debian whose first process is systemd, in a copy of the
# project: builds the packages, installs them, runs debian/tests, upgrades, and purges. Prints "passed" and
# "failed" lines; ends with status 0 only if all passed.
set -eu
cd "$(dirname "$0")/../.."
export HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive

step() {
    echo "== $1 ($(date +%T))"
}
fail() {
    echo "failed: $1"
    exit 1
}
main_pid() {
    systemctl show --property MainPID --value trayprobed
}

step 'build and check the packages'
tests/packaging/check_packages.sh build/packages
version=$(dpkg-parsechangelog --show-field Version)

step 'install'
apt-get -qq install --yes --no-install-recommends \
    "./build/packages/one/trayprobed_${version}_$(dpkg --print-architecture).deb" \
    "./build/packages/one/changerctl_${version}_$(dpkg --print-architecture).deb"
systemctl is-active trayprobed
systemctl is-enabled trayprobed
[ "$(changerctl --version)" = "changerctl $version" ] || fail 'the version of changerctl'
dpkg -s trayprobed changerctl | grep -c "^Version: $version$" | grep -qx 2 || fail 'the version of the packages'

step 'debian/tests'
# shellcheck disable=SC2046 # a list of packages
scripts/setup $(sed -n '/^Depends:/,/^Restrictions:/s/^ \+\([a-z0-9-]\+\),\?$/\1/p' debian/tests/control)
for test in system-suite service command; do
    step "debian/tests/$test"
    "debian/tests/$test" || fail "debian/tests/$test"
done

step 'upgrade'
former=$(main_pid)
mkdir build/upgrade
dpkg-deb --raw-extract build/packages/one/trayprobed_*.deb build/upgrade/tree
sed -i "s/^Version: .*/&+1/" build/upgrade/tree/DEBIAN/control
dpkg-deb --build build/upgrade/tree build/upgrade/trayprobed.deb
apt-get -qq install --yes ./build/upgrade/trayprobed.deb
systemctl is-active trayprobed
[ "$(main_pid)" != "$former" ] || fail 'the upgrade did not restart the service'

step 'purge'
apt-get -qq purge --yes trayprobed changerctl
! pgrep -x trayprobed || fail 'a process is left'
left=$(find / -xdev \( -path /proc -o -path "$PWD" -o -path /var/tmp/trayprobed-test-programs \) -prune -o \
    \( -name '*trayprobed*' -o -name '*changerctl*' \) -print)
[ -z "$left" ] || fail "files are left: $left"
! getent passwd trayprobed || fail 'the user is left'
! getent group trayprobed || fail 'the group is left'
step passed
