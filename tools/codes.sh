#!/usr/bin/env bash
# Writes the tables of requests and of the other replies, code -> function -> file, into
# docs/architecture.md.
# --check: fails when the tables there are not those that the sources make.
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$0")/.."
doc=docs/architecture.md

requests() {
    sed -n 's/.*{"\([^"]*\)",.*&W::\([A-Za-z_0-9]*\).*/\1 \2/p' src/ict/commandtables.cpp | sort -u \
        | while read -r code handler; do
            file=$(grep -rlE "^void MainWindow::$handler\(" src --include='*.cpp')
            echo "| \`$code\` | \`$handler\` | \`${file#src/}\` |"
        done
}

# Replies that are put together from parts: codes, the text that makes them, its file.
# shellcheck disable=SC2016 # backticks of the document
made_of_parts='`95FF` … `95EC`, `95E7`, `95E6`|row.firstFailure|hwtest/lcmcircuit.cpp
`9FF1` … `9FF5`|"9FF"|hwtest/touch.cpp
`9FE1` … `9FE5`|"9FE"|hwtest/touch.cpp
`01F0`, `02F0`, `03F0`, `04F0`|"F0"|ict/levelflow.cpp
`FORCIBLY_GOTO_ICT_PASS` and the like|"FORCIBLY_GOTO_"|ict/forcedchange.cpp'

# The functions (or the table) of the file $2 that have the text $1, with commas. A definition
# begins in the first column and ends in a bracket there.
places() {
    awk -v text="$1" '
        /^[A-Za-z].*[(\[]/ { split($0, part, /[(\[]/); n = split(part[1], word, /[ :*&]+/); name = word[n] }
        index($0, text) && !seen[name]++ { printf "%s`%s`", separator, name; separator = ", " }' "src/$2"
}

replies() {
    {
        grep -roE '"([0-9A-F]{4}|FORCIBLY_GOTO_FAIL)"' src --include='*.cpp' | sort -u \
            | while IFS=: read -r file text; do
                grep -qF "{$text" src/ict/commandtables.cpp || echo "\`${text//\"/}\`|$text|${file#src/}"
            done
        echo "$made_of_parts"
    } | sort | while IFS='|' read -r codes text file; do
        functions=$(places "$text" "$file")
        [ -n "$functions" ] || { echo "src/$file has no $text any more (tools/codes.sh)" >&2; exit 1; }
        echo "| $codes | $functions | \`$file\` |"
    done
}
made=$(mktemp)
trap 'rm -f "$made"' EXIT
{
    sed '/<!-- codes -->/q' "$doc"
    printf '\n| Request | Handler | File |\n|---|---|---|\n'
    requests
    printf '\nReplies that are not the code of a request:\n\n| Reply | Sent by | File |\n|---|---|---|\n'
    replies
    echo
    sed -n '/<!-- end of codes -->/,$p' "$doc"
} >"$made"
if [ "${1-}" = --check ]; then
    diff "$doc" "$made" || { echo "the tables of codes are old; run: tools/codes.sh" >&2; exit 1; }
else
    cp "$made" "$doc"
fi
