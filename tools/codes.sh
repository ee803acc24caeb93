#!/usr/bin/env bash
# Writes the table of requests, code -> handler -> file, into docs/architecture.md.
# --check: fails when the table there is not the one that the sources make.
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$0")/.."
doc=docs/architecture.md

rows() {
    sed -n 's/.*{"\([^"]*\)",.*&W::\([A-Za-z_0-9]*\).*/\1 \2/p' src/ict/commandtables.cpp | sort -u \
        | while read -r code handler; do
            file=$(grep -rlE "^void MainWindow::$handler\(" src --include='*.cpp')
            echo "| \`$code\` | \`$handler\` | \`${file#src/}\` |"
        done
}
made=$(mktemp)
trap 'rm -f "$made"' EXIT
{
    sed '/<!-- codes -->/q' "$doc"
    printf '\n| Request | Handler | File |\n|---|---|---|\n'
    rows
    echo
    sed -n '/<!-- end of codes -->/,$p' "$doc"
} >"$made"
if [ "${1-}" = --check ]; then
    diff "$doc" "$made" || { echo "the table of requests is old; run: tools/codes.sh" >&2; exit 1; }
else
    cp "$made" "$doc"
fi
