#!/bin/sh
# The example station takes a virtual panel through ICT, and notices a fault. Arguments: the bench,
# the folder of the examples.
set -eu
folder=$(mktemp -d)
trap 'kill $panel; wait $panel || true; rm -rf "$folder"' EXIT
pass() { # options of bench panel
    "$bench" panel --folder "$folder/panel" --factory-new "$@" >"$folder/out" </dev/null &
    panel=$!
    link=
    while [ -z "$link" ]; do
        kill -0 $panel || exit 1
        sleep 0.2
        link=$(sed -n 's/^ *PC link *\(\/dev[^ ]*\).*/\1/p' "$folder/out")
    done
    /usr/bin/python3 "$examples/station.py" "$link"
}
bench=$1 examples=$2
pass
kill $panel
wait $panel || true
! pass --fault ddr
