#!/bin/sh
# One version everywhere. Arguments: the bench, the version, the source tree.
set -eux
[ "$("$1" --version)" = "bench $2" ]
digits=$(echo "$2" | tr -d .)
grep -q "HMIFWVersion\[20\] = \"A\.BBBB\.$digits" -r "$3/src/state"
[ "$(sed -n 's/^## //p' "$3/CHANGELOG.md" | head -n 1)" = "$2" ]
