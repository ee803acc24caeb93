#!/usr/bin/env bash
# Tries the packages of `tools/pack.sh all` as their first users do: in a bare Debian 12 that has
# neither a source tree nor anything else of this one. As root; a minute or two.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/common.sh

version=$(sed -n 's/^project(.* VERSION \([^ ]*\) .*/\1/p' CMakeLists.txt)
here=build/release/packages there=build/arm/packages
bench=$(echo "$PWD/$here"/ict-bench_*.deb) agent=$(echo "$PWD/$here"/ict-agent_*.deb)
for deb in "$bench" "$agent" "$there"/ict-bench_*_armhf.deb "$there"/ict-agent_*_armhf.deb; do
    [ -f "$deb" ] || die "there is no $deb: run tools/pack.sh all"
    packed=$(dpkg-deb -f "$deb" Version)
    [ "$packed" = "$version" ] \
        || die "$deb is of version $packed, CMakeLists.txt of $version: run tools/pack.sh all"
done
[ "$(id -u)" -eq 0 ] || die "packages are installed into a root of its own: run it as root"
install_packages packages-arm.txt # mmdebstrap and the emulator

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
chmod 755 "$root"

# Runs a command in the root. Its programs make namespaces and mount /proc, which neither a chroot
# nor a masked /proc allows.
inside() {
    bwrap --bind "$root" / --dev-bind /dev /dev --bind /proc /proc --ro-bind /sys /sys --tmpfs /run \
        --cap-add ALL --clearenv --setenv PATH /usr/sbin:/usr/bin:/sbin:/bin --setenv HOME /tmp \
        --chdir /tmp "$@"
}

say "Installing both packages with what they depend on"
archive | mmdebstrap --quiet --variant=apt --include="systemd-sysv,$bench,$agent" \
    --hook-dir=/usr/share/mmdebstrap/hooks/file-mirror-automount bookworm "$root" -
say "Producing a panel, as an ordinary user"
inside setpriv --reuid 1000 --regid 1000 --clear-groups sh -ec '
    bench --version
    bench produce --single --report out
    bench units --store out/units.sqlite
    # Not there, but known: the driver is.
    bench units --store postgresql://nobody@127.0.0.1:1/none 2>&1 | grep -i refused'
say "Removing them, the service enabled"
inside sh -ec '
    systemctl --quiet enable ict-panel
    apt-get -qq remove ict-bench ict-agent
    ! find /etc -xtype l -lname "*ict-*" | grep . || exit 1 # a start-up of nothing
    dpkg --purge ict-agent # has settings, the bench has none
    ! find /etc /usr /var \( -name "*ict-*" -o -lname "*ict-*" -o -path /usr/local/ict \) | grep .'
say "The bench for ARM, in an emulator"
dpkg-deb -x "$there"/ict-bench_*_armhf.deb "$root/arm"
qemu-arm-static -L build/arm-root "$root/arm/usr/bin/bench" --version
say "All as it must be"
