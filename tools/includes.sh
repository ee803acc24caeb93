#!/usr/bin/env bash
# Fails when an include in src/ runs against the order that docs/architecture.md draws: each folder
# may include itself and what stands right of it. Sources may include the window class anywhere
# left of link, for they hold its members.
set -euo pipefail
cd "$(dirname "$0")/.."
order=$(sed -n 's/^    \(main → .*\)/\1/p' docs/architecture.md)
[ -n "$order" ] || { echo "docs/architecture.md draws no order of includes" >&2; exit 1; }

grep -rnE '^#include "' src --include='*.cpp' --include='*.h' | awk -F: -v order="$order" '
    BEGIN { count = split(order, rooms, " → "); for (i = 1; i <= count; i++) place[rooms[i]] = i }
    function room(path) { return path ~ /\// ? substr(path, 1, index(path, "/") - 1) : path }
    {
        from = substr($1, 5); sub(/\.(cpp|h)$/, "", from)
        split($3, parts, "\""); to = parts[2]; sub(/\.(cpp|h)$/, "", to)
        if (to !~ /\// && to != "mainwindow" && to != "ui_mainwindow") next # its own folder
        if (to == "ui_mainwindow") to = "mainwindow"
        if (!(room(from) in place) || !(room(to) in place)) { print $0 ": not in the order"; bad = 1; next }
        window = to == "mainwindow" && place[room(from)] < place["link"]
        if (place[room(to)] < place[room(from)] && !window) { print $0; bad = 1 }
    }
    END { exit bad }'
