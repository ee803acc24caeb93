#!/usr/bin/env bash
# Makes the whole ARM machine that `bench ... --board` switches on, in build/board: Debian's armhf
# kernel with drivers and libraries (once, a minute or two; remove the folder to have it made anew),
# over it the panel's own .deb and what a board's maker adds (bench/board).
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/common.sh

board=build/board
# Drivers of everything on the machine; what they depend on comes with them.
modules="virtio_pci virtio_console virtio_input virtio_net virtio_blk 9pnet_virtio 9p ext4 loop
    crc32c_generic virtio-gpu evdev uinput nandsim dummy_hcd g_serial usb_f_acm usb_f_mass_storage xhci-pci usb-storage
    sd_mod sdhci-pci mmc_block ftdi_sio usbserial cdc-acm industrialio roles"

# Prints the file of module $1 and those it needs; nothing for one that is built in.
with_needed() {
    local line need
    line=$(grep -E "^[^:]*/${1//[-_]/[-_]}\.ko:" modules.dep) || {
        grep -qE "/${1//[-_]/[-_]}\.ko" modules.builtin || die "the kernel has no driver $1"
        return 0
    }
    for need in ${line#*:}; do
        need=${need##*/}
        with_needed "${need%.ko}"
    done
    echo "${line%%:*}"
}

# A cpio archive of the folder $1, all of it root's, whoever makes it.
archive_folder() { (cd "$1" && find . | cpio --quiet -o -H newc -R 0:0); }

# The kernel, and as the first part of its initial file system drivers, libraries and busybox.
make_base() {
    local new=$PWD/$board.new version module
    say "Making the ARM machine in $board"
    rm -rf "$new"
    mkdir -p "$new"/root/{bin,usr/share} "$new/all"
    unpack_armhf linux-image-armmp,busybox-static,coreutils,libqt5widgets5,fonts-dejavu-core,tzdata \
        "$new/all" ./boot ./bin ./lib ./etc ./usr/bin/cksum ./usr/lib/arm-linux-gnueabihf \
        ./usr/share/fonts ./usr/share/fontconfig ./usr/share/zoneinfo
    mv "$new"/all/boot/vmlinuz-* "$new/vmlinuz"
    version=$(ls "$new/all/lib/modules")
    cd "$new/all/lib/modules/$version"
    busybox depmod -b "$new/all" "$version"
    mkdir -p "$new/root/lib/modules/$version"
    for module in $modules; do with_needed "$module"; done | sort -u \
        | xargs cp --parents -t "$new/root/lib/modules/$version"
    cp modules.builtin "$new/root/lib/modules/$version"
    busybox depmod -b "$new/root" "$version"
    cd "$new/all"
    rm -rf lib/modules
    tar -c bin/busybox usr/bin/cksum lib etc/fonts usr/lib usr/share | tar -x -C "$new/root"
    ln -s busybox "$new/root/bin/sh"
    ln -s bin/busybox "$new/root/init"
    cd "$new/../.."
    archive_folder "$new/root" >"$new/base.cpio"
    rm -rf "$new/all" "$new/root"
    mv "$new" "$board"
}

# What a new machine is given copies of: an empty disk, and a stick or card with one partition.
make_disks() {
    rm -f "$board"/*.img
    truncate -s 32M "$board/ict.img"
    /sbin/mke2fs -q -t ext4 -b 1024 "$board/ict.img"
    truncate -s 8M "$board/medium.img"
    echo 2048,,L | /sbin/sfdisk -q "$board/medium.img"
    /sbin/mke2fs -q -F -t ext2 -b 1024 -E offset=$((2048 * 512)) "$board/medium.img" 7168
}

# The package as porting.md has it, unpacked at the root, and over it what is the board's.
make_panel() {
    local root=$board/panel program qt=build/arm-root/usr/include/arm-linux-gnueabihf/qt5
    rm -rf "$root"
    mkdir -p "$root"/{proc,sys,dev,tmp,run,media,mnt/ramdisk,sbin,usr/{bin,sbin},var} \
        "$root"/usr/local/{bin,ict,HMIAPP,conf}
    mkdir -m 700 "$root/root"
    dpkg-deb -x "$(ls build/arm/packages/ict-agent_*_armhf.deb)" "$root"
    cp -a bench/board/guest/. "$root"
    # What fontconfig's installation does; the bench knows letters by their pixels.
    mkdir -p "$root/etc/fonts/conf.d"
    ln -s /usr/share/fontconfig/conf.avail/10-hinting-slight.conf "$root/etc/fonts/conf.d"
    for program in bin/fw_setenv bin/check_bk_rootfs.sh; do
        ln -s /board/toolbox "$root/usr/local/$program"
    done
    arm-linux-gnueabihf-gcc -Wall -Wextra -Os -s -static -o "$root/board/buzzer" \
        bench/board/buzzer.c
    arm-linux-gnueabihf-g++ --sysroot="$PWD/build/arm-root" -fPIC -Os -s -std=c++17 \
        -I"$qt" -I"$qt/QtCore" -I"$qt/QtGui" -I"$qt/QtWidgets" \
        -o "$root/board/window" bench/window/main.cpp -lQt5Widgets -lQt5Gui -lQt5Core
    archive_folder "$root" | cat "$board/base.cpio" - >"$board/initrd.new"
    mv "$board/initrd.new" "$board/initrd"
}

install_packages packages.txt
install_packages packages-board.txt
tools/arm.sh --build-only
(cd build/arm && cpack -B packages >pack.log) || die "packing failed: see build/arm/pack.log"
[ -d "$board" ] || make_base
make_disks
make_panel
