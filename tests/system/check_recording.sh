#!/bin/sh
# check_recording.sh: a recorded command's picture has its text where the terminal shows it, in its colours;
# a command that fails leaves no picture.
set -eu
cd "$(dirname "$0")/../.."
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

scripts/lib/record_terminal.py "$scratch/picture.svg" \
    printf 'old\r\033[J\033[32mgreen\033[0m \033[2mfaint\033[0m <&>   three later\n'
for expected in '<text x="0.0" textLength="42.0" class="green">green</text>' \
    '<text x="50.4" textLength="42.0" class="dim">faint</text>' \
    '<text x="100.8" textLength="25.2">&lt;&amp;&gt;</text>' \
    '<text x="151.2" textLength="92.4">three later</text>'; do
    if ! grep -qF "$expected" "$scratch/picture.svg"; then
        echo "missing: $expected"
        exit 1
    fi
done
if grep -F '>old<' "$scratch/picture.svg"; then
    exit 1 # what is erased at once is in no frame
fi

if scripts/lib/record_terminal.py "$scratch/none.svg" false; then
    exit 1
fi
[ ! -e "$scratch/none.svg" ]
