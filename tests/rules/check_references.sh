#!/bin/sh
# check_references.sh: the pages name only tests that exist, and link only to files that exist.
set -eu
cd "$(dirname "$0")/../.."
broken=0

# shellcheck disable=SC2016 # the quotes are the pages'
for name in $(grep -ohE '`[A-Z]\w+\.[A-Z]\w+`' ./*.md docs/*.md | tr -d '`'); do
    grep -qrE "TEST(_F|_P)?\(${name%.*}, ${name#*.}\)" tests && continue
    echo "no such test: $name"
    broken=1
done

for page in ./*.md docs/*.md; do
    # shellcheck disable=SC2013 # no link has a blank
    for link in $(grep -ohE '\]\([^):#]+' "$page" | cut -c3-); do
        [ -e "$(dirname "$page")/$link" ] && continue
        echo "$page links to a file that does not exist: $link"
        broken=1
    done
done

[ $broken -eq 0 ] && echo 'All references are valid.'
exit $broken
