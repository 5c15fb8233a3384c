#!/bin/sh
# check_unit.sh BUILD: installs the build into a temporary root and has systemd judge the unit there,
# alone and with each example of a drop-in: it must have no flaw, and its exposure must be at most 1.2.
set -eu
build=$1

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
DESTDIR=$root cmake --install "$build" >"$root/installed"
unit=$(sed -n 's,^-- Installing: \(.*/trayprobed.service\)$,\1,p' "$root/installed")

# The units that each service depends on.
mkdir -p "$root/usr/lib/systemd"
cp -R /usr/lib/systemd/system "$root/usr/lib/systemd"

# judge WHAT: judges the unit, with its drop-ins. verify's status does not tell of unknown settings.
judge() {
    echo "== $1"
    flaws=$(systemd-analyze verify --man=no --root="$root" "$unit" 2>&1) || true
    if [ -n "$flaws" ]; then
        echo "$flaws"
        exit 1
    fi
    systemd-analyze security --no-pager --offline=true --threshold=12 --root="$root" \
        trayprobed.service
}

judge "the unit"
mkdir "$unit.d"
for example in "$root"/usr/*/share/doc/trayprobed/examples/*.conf; do
    cp "$example" "$unit.d"
    judge "with ${example##*/}"
    rm "$unit.d"/*
done
