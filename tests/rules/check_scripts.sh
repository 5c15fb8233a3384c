#!/bin/sh
# check_scripts.sh: fails if shellcheck has a remark on a shell script of the project, whatever its
# name is, or on the completion for bash.
set -eu
cd "$(dirname "$0")/../.."

list=$(mktemp)
trap 'rm -f "$list"' EXIT
find . -name build -prune -o -name .git -prune -o -type f -exec grep -lIE '^#!/bin/(ba)?sh' {} + >"$list"
[ -s "$list" ]
xargs shellcheck --external-sources <"$list"
shellcheck --shell=bash changerctl/completion/changerctl.bash
