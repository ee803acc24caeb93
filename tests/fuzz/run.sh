#!/bin/sh
# Runs a fuzz target in a sandbox where nothing of this machine can be changed: user namespace of
# its own (so that no clock can be set), file systems in memory, no program on the path.
#   run.sh PROGRAM FOLDER ARGUMENT...   FOLDER is the only place that can be written to
set -eu
program=$(readlink -f "$1") folder=$(readlink -f "$2")
shift 2
exec bwrap --unshare-all --unshare-user --die-with-parent --ro-bind /usr /usr \
    --symlink usr/bin /bin --symlink usr/lib /lib --symlink usr/lib64 /lib64 --proc /proc --dev /dev \
    --tmpfs /etc --ro-bind /etc/fonts /etc/fonts --ro-bind-try /etc/alternatives /etc/alternatives \
    --tmpfs /sys --tmpfs /tmp --tmpfs /usr/local --dir /usr/local/ict \
    --ro-bind "$(dirname "$0")/voltage" /sys/bus/iio/devices/iio:device0/in_voltage6_raw \
    --dir /sandbox --ro-bind "$program" /fuzz --bind "$folder" /work --chdir /work \
    --clearenv --setenv PATH /none --setenv QT_QPA_PLATFORM offscreen --setenv HOME /tmp \
    --setenv ASAN_OPTIONS "detect_leaks=0:handle_abort=1" \
    /fuzz "$@"
