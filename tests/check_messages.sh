#!/usr/bin/env bash
# Keeps docs/messages.md true: the message in the first column of every table row there must still be
# logged by the code, that is, what is left of it between its placeholders must appear in the sources.
# Placeholders: <name>, QListOfInts(...), ..., numbers and column padding (two blanks or more) are filled
# in by the tool; the logger adds the quotes.
# Usage: check_messages.sh [PROJECT_SOURCE_DIR]
set -euo pipefail
root=${1:-$(dirname "$0")/..}
code=$(cat "$root/main.cpp" "$root"/linux/helpers/prodinfo/*.cpp)
messages=0 missing=0
# Each message comes as a line "@@message", followed by its fixed parts, one a line.
while IFS= read -r part; do
    [[ $part == @@* ]] && { message=${part#@@} messages=$((messages + 1)); continue; }
    part=${part#"${part%%[! ]*}"} part=${part%"${part##*[! ]}"}
    if [ -n "$part" ] && [[ $code != *"$part"* ]]; then
        echo "not in the code: \`$message\` (missing: \"$part\")"
        missing=$((missing + 1))
    fi
done < <(sed -nE 's/^\| `([^`]+)`.*/\1/p' "$root/docs/messages.md" |
    sed -E 'h; s/^/@@/p; g; s/"//g; s/QListOfInts\(\.\.\.\)|<[^>]*>|\.\.\.|\b[0-9]+\b| {2,}/\n/g')
[ "$messages" -gt 0 ] || { echo "no messages found in $root/docs/messages.md"; exit 1; }
echo "$messages documented messages checked, $missing parts not found in the code"
[ "$missing" -eq 0 ]
