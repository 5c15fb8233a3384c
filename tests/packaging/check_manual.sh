#!/bin/sh
# check_manual.sh BUILD COMMAND: the manual pages have no flaw that mandoc or man knows, and changerctl(1)
# has the options, the exit statuses and the version that the command itself tells.
set -eu
pages=$1/packaging
command=$2

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# expect_silence COMMAND...: the command must print nothing to standard error or to its output.
expect_silence() {
    "$@" >"$scratch/remarks" 2>&1 || true
    if [ -s "$scratch/remarks" ]; then
        echo "$*:"
        cat "$scratch/remarks"
        exit 1
    fi
}
render() {
    man --warnings --local-file "$1" >/dev/null
}
for page in "$pages/trayprobed.8" "$pages/changerctl.1"; do
    expect_silence mandoc -Tlint -Wwarning "$page"
    expect_silence render "$page"
done

# expect_same WHAT: the lists in-page and in-help are equal, and not empty.
expect_same() {
    [ -s "$scratch/in-help" ]
    if ! diff "$scratch/in-page" "$scratch/in-help"; then
        echo "$1 differ: < in changerctl(1), > in changerctl --help"
        exit 1
    fi
}

MANWIDTH=1000 man --local-file "$pages/changerctl.1" | col -b >"$scratch/page"
"$command" --help >"$scratch/help"

sed -n '/^EXIT STATUS/,/^ENVIRONMENT/s/^ \+\([0-9]\) .*/\1/p' "$scratch/page" >"$scratch/in-page"
sed -n '/^Exit status/,/See changerctl/p' "$scratch/help" | sed 's/See.*//' |
    grep -oE '[0-9]' >"$scratch/in-help"
expect_same 'exit statuses'

# The commands are listed below "Subcommands:", indented.
sed '1,/^Subcommands:/d' "$scratch/help" | sed -n 's/^  \([a-z]\+\) .*/\1/p' >"$scratch/commands"
while read -r name; do
    "$command" "$name" --help >>"$scratch/help"
done <"$scratch/commands"
for where in page help; do
    grep -oE -- '--[a-z][a-z-]+' "$scratch/$where" | sort -u >"$scratch/in-$where"
done
expect_same options

version=$(sed -n 's/^\.TH .*"trayprobed \([0-9.]*\)".*/\1/p' "$pages/changerctl.1")
"$command" --version | grep -xF "changerctl $version"
