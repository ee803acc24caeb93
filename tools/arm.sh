#!/usr/bin/env bash
# Cross-builds agent and bench for 32-bit hard-float ARM and packs them.
#   --build-only   the agent alone, no packages
# The Debian 12 armhf root with the libraries is made once (half a minute) in build/arm-root;
# remove that folder to have it made anew.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/common.sh

root=build/arm-root

# Kept are the folders a compiler and an emulated program look into; /etc and the rest stay the
# panel's.
make_root() {
    say "Making the armhf root in $root"
    rm -rf "$root" "$root.new"
    mkdir -p "$root.new"
    unpack_armhf libc6-dev,libstdc++-12-dev,qtbase5-dev,libvncserver-dev,libfaketime,libeatmydata1 \
        "$root.new" ./lib ./usr/lib ./usr/include
    arm-linux-gnueabihf-gcc -shared -fPIC -O2 -o "$root.new/usr/lib/libnopidfd.so" tools/arm-nopidfd.c
    mkdir "$root.new/etc"
    echo /usr/lib/libnopidfd.so >"$root.new/etc/ld.so.preload"
    mv "$root.new" "$root"
}

install_packages packages-arm.txt
[ -e "$root"/usr/include/rfb/rfbclient.h ] || make_root # an older root lacks the bench's
[ "${1-}" = --build-only ] && build arm && exit
exec tools/pack.sh arm
