#!/bin/sh
# T1, BI and T2 of a virtual panel in a shell script, for anyone's CI. Needs the bench on the PATH;
# ends with 0 if everything passed, leaves the screens in the folder that it is given (default: .).
set -eu
screens=${1:-.} folder=$(mktemp -d)
bench panel --level t1 --folder "$folder/unit" >"$folder/panel.txt" </dev/null &
panel=$!
trap 'kill $panel; wait $panel || true; rm -rf "$folder"' EXIT
until [ -e "$folder/unit/ttyO1" ] && bench power on --panel "$folder/unit" 2>/dev/null; do sleep 0.2; done

ask() { bench send --port "$folder/unit/${line:-ttyO1}" --timeout 60000 "$@"; }
look() { bench look "$1" --panel "$folder/unit"; }
by_finger() { # gesture, request
    bench touch "$1" --panel "$folder/unit" &
    finger=$!
    ask "$2"
    wait $finger
}
both_levels() {
    for code in AB00 AA00 FF00 8000 8500 9201 9202 A200 8800 9003; do ask $code; done
    # The panel waits 100 ms for these answers, which a busy machine may miss once.
    for code in 810A 8107; do ask $code || ask $code; done
    for shown in 9504:red 9505:green 9506:blue 9507:bands 9301:dark 9302:white; do
        ask "${shown%:*}"
        look "${shown#*:}"
    done
}

both_levels
ask 0601 20254711T12345678
ask 0701
by_finger calibrate 9000
bench screenshot "$screens/t1.png" --panel "$folder/unit"
ask 8D
ask 8A00
ask 0100

bench power cycle --panel "$folder/unit"
line=ttyO3
for code in 9504 8500 8800 9003 A200 0200; do ask $code --bi; done

bench power cycle --panel "$folder/unit"
line=ttyO1
both_levels
ask 0701
by_finger check 9001
ask 8E
ask 0300
bench screenshot "$screens/t2.png" --panel "$folder/unit"
