#!/bin/sh
# make_root.sh RELEASE DIRECTORY [PACKAGE,...]: makes a minimal root file system of that Debian release, with
# the packages named, from the mirror from which this machine installs its own. Must run as root.
# debootstrap may leave mounts behind; they end with its mount namespace.
set -eu

scripts/setup debootstrap
# shellcheck disable=SC2016 # expanded by apt-get
mirror=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Origin: Debian' 'Label: Debian' |
    head -n 1)
exec unshare --mount debootstrap --variant=minbase ${3:+"--include=$3"} "$1" "$2" "$mirror"
