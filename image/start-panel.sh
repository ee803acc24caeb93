#!/bin/sh
# Starts what the panel is to run: the product application once production has released the panel
# (its level file says HMI), the test agent before that, and on a panel that has no level yet.
#
#   start-panel.sh                   becomes that program and ends with its status
#   start-panel.sh --forever         starts it again whenever it ends; for init systems that do not
#   start-panel.sh --dry-run [FILE]  prints the command line that the level file, or FILE, leads to
#
# The level is read at each start. The agent changes it on disk only, so a new level begins with the
# next power cycle, or with a restart of this script's service.
set -u

level_file=/usr/local/ict/HMI_TEST_LEVEL.txt
agent=/usr/local/bin/ict-agent
application=/usr/local/HMIAPP/HMIApp
settings=/etc/default/ict-panel # Qt's and tslib's variables for this board

PATH=/usr/local/bin:/usr/local/ict:/usr/sbin:/usr/bin:/sbin:/bin
HOME=${HOME:-/root}
export PATH HOME

chosen() {
    level=
    if [ -e "$level_file" ]; then
        level=$(cat "$level_file") || return
    fi
    case $level in
    HMI*) echo "$application" ;;
    *) echo "$agent" ;;
    esac
}

start() {
    # Never the other one instead: the agent takes a released panel for a new one and sets its clock
    # back.
    if ! program=$(chosen); then
        echo "start-panel: $level_file cannot be read; nothing is started" >&2
        exit 127
    fi
    if ! [ -x "$program" ]; then
        echo "start-panel: $program is missing; check with check-panel.sh" >&2
        exit 127
    fi
    if [ -r "$settings" ]; then
        set -a
        # shellcheck disable=SC1090 # the board's own
        . "$settings"
        set +a
    fi
    cd "${program%/*}" || exit 127
    # The agent makes its standard input non-blocking, and with it a terminal that others use.
    exec "$program" -platform linuxfb </dev/null
}

# In the middle of a test the agent hears no signal but the last.
end() {
    if [ -n "$child" ] && kill "$child"; then
        (sleep 5 && kill -9 "$child") 2>/dev/null &
        wait "$child"
        kill $! 2>/dev/null
    fi
    exit 0
}

forever() {
    child=
    trap end TERM INT HUP
    while :; do
        start &
        child=$!
        wait "$child"
        echo "start-panel: ended with status $?; starting again" >&2
        sleep 1 & # a program that cannot run must not fill the log
        child=$!
        wait "$child"
    done
}

case ${1-} in
'') start ;;
--forever) forever ;;
--dry-run)
    level_file=${2:-$level_file}
    echo "$(chosen) -platform linuxfb"
    ;;
*)
    sed -n '2,/^set/s/^# \{0,1\}//p' "$0"
    [ "$1" = --help ]
    ;;
esac
