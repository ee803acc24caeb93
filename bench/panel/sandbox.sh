#!/bin/sh
# Becomes a panel's sandbox, made by bubblewrap:
#   sandbox.sh ROOT DISK AGENT LIBRARIES COMMAND...
# The panel's "/" is ROOT. DISK tells how its /usr/local/ict is mounted: normal, readOnly or full.
# AGENT, a program of this machine, is put at /run/bench under its own name and, if it is an ARM
# program, its LIBRARIES at /run/bench/root (else ""). COMMAND runs inside.
# Status 95 and a text with the remedy: something is missing on this machine.
set -u
root=$1 disk=$2 agent=$3 libraries=$4
shift 4

missing() {
    echo "$*" >&2
    exit 95
}
program() { # its package
    command -v "$1" >/dev/null || missing "$1 is not installed: apt-get install $2"
}
# One that is to be preloaded but is missing would be ignored with a mere warning, and the panel
# would run on the machine's clock: look first.
library() { # its package
    for file in /usr/lib/*-linux-*/"$1"; do
        [ -e "$file" ] && return
    done
    missing "${1##*/} is not installed: apt-get install $2"
}

program bwrap bubblewrap
program socat socat
library faketime/libfaketimeMT.so.1 libfaketime
library libeatmydata.so libeatmydata1
[ -x "$agent" ] || missing "The agent $agent does not exist: build it first, or name another"

set -- --chdir / /run/bench/init "$@"
if [ -n "$libraries" ]; then
    program qemu-arm-static qemu-user-static
    [ -d "$libraries" ] || missing "There is no $libraries: make it with tools/arm.sh"
    set -- --ro-bind "$libraries" /run/bench/root "$@"
fi
ict=/usr/local/ict
case $disk in
readOnly) set -- --ro-bind "$root$ict" $ict "$@" ;;
full) set -- --bind "$root$ict" /run/bench/ict --size 1048576 --tmpfs $ict "$@" ;;
esac
for path in /etc/fonts /etc/alternatives /etc/ld.so.cache; do
    set -- --ro-bind-try $path $path "$@"
done
for device in null zero full random urandom; do
    set -- --dev-bind /dev/$device /dev/$device "$@"
done

# A panel has a processor of its own: where this is allowed, what else runs here does not make its
# answers late.
renice -n $(($(nice) - 10)) -p $$ >/dev/null 2>&1

# Each namespace by name: "--unshare-all" would go on without a user namespace where it cannot have
# one, and as root the panel's `date` would then set this machine's clock.
# The agent syncs after every record. libeatmydata leaves that out: there is no power to fail here,
# and each sync would flush the disks of the whole machine.
# A sanitizer's runtime insists on being loaded first, which libfaketime is here. What the toolkit's
# VNC platform leaks is not the agent's. A race ends the agent, and with it the test; what the
# toolkit, which is not built with the sanitizer, allocates in one thread and frees in another after
# a wait is no race.
races=report_bugs=1:halt_on_error=1:ignore_noninstrumented_modules=1
# shellcheck disable=SC2016 # the linker's own $LIB
exec bwrap \
    --unshare-user --unshare-pid --unshare-net --unshare-ipc --unshare-uts \
    --uid 0 --gid 0 --hostname panel --cap-drop ALL --die-with-parent --new-session \
    --clearenv \
    --setenv PATH /usr/local/bin:/usr/local/ict:/usr/sbin:/usr/bin:/sbin:/bin \
    --setenv HOME /root \
    --setenv LANG C.UTF-8 \
    --setenv XDG_RUNTIME_DIR /root \
    --setenv QT_QPA_PLATFORM vnc:size=800x480:port=5900 \
    --setenv PANEL_PRELOAD 'libeatmydata.so /usr/$LIB/faketime/libfaketimeMT.so.1' \
    --setenv FAKETIME_TIMESTAMP_FILE /run/bench/clock/system \
    --setenv FAKETIME_NO_CACHE 1 \
    --setenv DONT_FAKE_MONOTONIC 1 \
    --setenv NO_FAKE_STAT 1 \
    --setenv ASAN_OPTIONS "verify_asan_link_order=0:${ASAN_OPTIONS-}" \
    --setenv LSAN_OPTIONS "suppressions=/run/bench/leaks:print_suppressions=0:${LSAN_OPTIONS-}" \
    --setenv TSAN_OPTIONS "$races:${TSAN_OPTIONS-}" \
    --setenv UBSAN_OPTIONS "${UBSAN_OPTIONS-}" \
    --bind "$root" / --ro-bind /usr /usr --bind "$root/usr/local" /usr/local \
    --proc /proc --dev-bind /dev/pts /dev/pts --tmpfs /dev/shm \
    --ro-bind "$agent" "/run/bench/${agent##*/}" \
    "$@"
