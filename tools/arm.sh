#!/usr/bin/env bash
# Cross-builds the agent for 32-bit hard-float ARM and packs it (.deb and .tar.gz).
# The Debian 12 armhf root with the libraries is made once (half a minute) in build/arm-root;
# remove that folder to have it made anew.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/common.sh

root=build/arm-root

# The archive as this machine's own apt knows it, so that mirrors and proxies set up here are used.
archive() {
    # shellcheck disable=SC2016 # apt's own placeholders
    apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' \
        'Created-By: Packages' 'Origin: Debian' 'Codename: bookworm' 'Component: main' | sort -u
}

# The packages are unpacked, not installed: nothing of ARM runs, nobody has to be root. Kept are the
# folders a compiler and an emulated program look into; /etc and the rest stay the panel's.
# Left out is what only 3D drivers use, a third of the size.
make_root() {
    local sources
    sources=$(archive)
    [ -n "$sources" ] \
        || die "apt on this machine has no Debian 12 archive: add it to its sources, run apt-get update"
    say "Making the armhf root in $root"
    rm -rf "$root" "$root.new"
    mkdir -p "$root.new"
    nice mmdebstrap --mode=chrootless --quiet --architectures=armhf --variant=extract --format=tar \
        --include=libc6-dev,libstdc++-12-dev,qtbase5-dev,libfaketime,libeatmydata1 \
        bookworm - - <<<"$sources" \
        | {
            tar -x -C "$root.new" --no-same-owner --exclude='*/dri' --exclude='libLLVM*' \
                ./lib ./usr/lib ./usr/include
            cat >/dev/null # the padding; mmdebstrap hangs up on us if nobody reads it
        }
    arm-linux-gnueabihf-gcc -shared -fPIC -O2 -o "$root.new/usr/lib/libnopidfd.so" tools/arm-nopidfd.c
    mkdir "$root.new/etc"
    echo /usr/lib/libnopidfd.so >"$root.new/etc/ld.so.preload"
    mv "$root.new" "$root"
}

install_packages packages-arm.txt
[ -d "$root" ] || make_root
[ "${1-}" = --build-only ] && build arm && exit
exec tools/pack.sh arm
