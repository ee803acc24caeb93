#!/bin/sh
# Keeps the factory logs outside the folder that a new system image overwrites.
#
#   log_rdwr.sh -w    archives the logs to persistent storage
#   log_rdwr.sh -r    brings the archive to $FETCHED
#
# A power cut at any moment leaves the old archive or the new one, whole.

# --- Settings of the board ---
LOGS=/usr/local/ict        # folder whose .txt files are the logs
STORE=/mnt/ict_log         # folder of the archive: the mount point of its partition
PARTITION=                 # block device mounted there at need; empty: STORE is a plain folder
FETCHED=/tmp/ict_log.tgz   # where the test agent looks for the archive
# --- End of settings ---

archive=$STORE/ict_log.tgz

fail() {
    echo "log_rdwr.sh: $*" >&2
    exit 1
}

open_store() {
    mkdir -p "$STORE" || fail "cannot make $STORE: is its file system writable?"
    [ -z "$PARTITION" ] && return
    grep -q " $STORE " /proc/mounts || mount "$PARTITION" "$STORE" ||
        fail "cannot mount $PARTITION on $STORE: check PARTITION in this script"
}

# The archive is replaced by a rename, when all of the new one is on the medium.
save() {
    new=$archive.new
    cd "$LOGS" || fail "no folder $LOGS"
    if tar czf "$new" ./*.txt && sync && mv -f "$new" "$archive"; then
        sync
    else
        rm -f "$new"
        fail "logs not saved, the archive is as it was: is $STORE full?"
    fi
}

fetch() {
    if ! cp "$archive" "$FETCHED.new" || ! mv -f "$FETCHED.new" "$FETCHED"; then
        rm -f "$FETCHED.new"
        fail "no archive brought to $FETCHED: was one saved with -w?"
    fi
}

case "$1" in
-w) open_store && save ;;
-r)
    # Before anything can fail: an archive that an earlier call left must not pass for this one's.
    rm -f "$FETCHED"
    open_store && fetch
    ;;
*) fail "usage: log_rdwr.sh -w | -r" ;;
esac
