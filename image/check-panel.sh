#!/bin/sh
# Checks on a board what the test agent expects of it, and prints a table. Reads and looks only:
# nothing is opened for writing or set, and of programs only hwclock is asked what it prints.
# Exit status: 0 all that production needs is there, 1 something is missing, 2 wrong usage.
# A row: need|kind|name|what happens without it. Needs: must (a test of production fails or waits),
# may (the environmental tests, a medium, or comfort).
set -u

PATH=/usr/local/bin:/usr/local/ict:/usr/sbin:/usr/bin:/sbin:/bin
export PATH

rows='
must|root|user root|clock, network and /etc stay as they are
must|screen|/sys/class/graphics/fb0/virtual_size|no window of 800 x 480
must|folder|/usr/local/ict|no level, no results: no dispatcher
must|folder|/etc|no touch calibration, no time zone
must|folder|/usr/local/conf|the touch driver is not told of a calibration
must|program|/usr/local/bin/ict-agent|nothing to start before release
must|loads|/usr/local/bin/ict-agent|it ends at once
must|plugin|platforms/libqlinuxfb.so|the agent ends at once
may|plugin|generic/libqtslibplugin.so|touches obey the driver, not /etc/pointercal
must|program|/usr/local/HMIAPP/HMIApp|model and version empty, forced changes refused
must|port|/dev/ttyO1|PC link (COM1 RS-232): the station gets no answer
must|port|/dev/ttyO3|PC link at BI (COM1 RS-485): the station gets no answer
must|port|/dev/ttyO4|COM2: 81F3, 81F7, 92Fn, LCM failures
must|device|/dev/OstraHMI_GPMC_RW|SRAM not cleared at release
must|device|/dev/mtd0|AA00 answers what the CRC tool says of it
must|sound|/dev/input/event1|buzzer: 92F1, 92F2
must|set|/sys/class/backlight/backlight/brightness|the backlight stays as it is
must|number|/sys/class/input/input0/device/ADC_X|touches read as 0: calibration fails
must|number|/sys/class/input/input0/device/ADC_Y|touches read as 0: calibration fails
must|number|/sys/class/input/input0/device/Warden_ADC_Z|the pressure test passes unseen
must|number|/sys/class/rtc/rtc0/since_epoch|8CF0
must|number|/sys/bus/iio/devices/iio:device0/in_voltage4_raw|5 V rail: the test waits for ever
must|number|/sys/bus/iio/devices/iio:device0/in_voltage5_raw|3.3 V rail: the test waits for ever
must|number|/sys/bus/iio/devices/iio:device0/in_voltage6_raw|battery: the test waits for ever
must|pointer|/etc/pointercal|no backup of the touch calibration
must|file|/usr/share/zoneinfo/Asia/Taipei|the time zone stays when the station sets the clock
must|zone|/etc/localtime|that zone is overwritten when the station sets the clock
must|net|eth0|no network address
must|tool|sh|nothing works
must|tool|date|clock tests: 8CF0, 8DF0, 8EF0
must|clock|hwclock|clock tests: 8CF0, 8DF0, 8EF0
must|tool|sync|results may be lost at power-off
must|tool|cp|no log export, no time zone
must|tool|cat|no resume log, touches read as 0
must|tool|rm|old results stay when a level is entered anew
must|tool|tar|no log export from the partition
must|tool|ifconfig|no network address
must|tool|fw_setenv|the boot loader keeps the old touch calibration
must|program|/usr/local/bin/check_bk_rootfs.sh|87F0
must|program|/usr/local/ict/create_ramdisk.sh|A2F0
must|program|/usr/local/ict/ReadCrc.bin|AA00 answers nothing
must|program|/usr/local/ict/chk_ddr.sh|85F0
must|program|/usr/local/ict/log_rdwr.sh|logs not saved, CCF0, CCF1
must|program|/usr/local/ict/lcd_circuit_test_init.sh|the LCM probe decides
must|program|/usr/local/ict/lcd_circuit_test_uninit.sh|the LCM probe decides
must|program|/usr/local/ict/lcd_circuit_test_pattern.sh|the LCM probe decides
must|program|/usr/local/ict/fast_lcd_circuit_test_pattern.sh|the LCM probe decides
must|program|/usr/local/ict/mem_rdwr|the touch controller keeps its sampling
may|port|/dev/ttyUSB0|PFVP: there once its modules are loaded and the cable is in
may|port|/dev/ttyGS0|PFVP: there once its modules are loaded and the cable is in
may|folder|/media/sda|USB storage: A2F0; there while the medium is in
may|folder|/media/sda1|log export to a stick: CCF0, CCE0; there while it is in
may|folder|/media/mmcblk0p1|log export to a card: CCF1, CCE1; there while it is in
may|program|/usr/local/ict/mount_system.sh|goes on
may|program|/usr/local/ict/update_pointercal.sh|goes on after a calibration
may|role|usb_mode.sh|CE00 and CE01 do nothing
may|tool|ping|no test needs it
may|tool|modprobe|PFVP: no USB serial ports
may|module|g_serial|PFVP: no /dev/ttyGS0, USB device item fails
may|module|usbserial|PFVP: no /dev/ttyUSB0, USB host item fails
may|setting|QT_FONT_DPI|letters of another size, texts run into each other
may|font|Ubuntu|another font, columns shift
'

# One function a kind: silent if all is well, else says what is wrong with $1.
is_root() { [ "$(id -u)" = 0 ] || echo "user $(id -u)"; }
is_screen() {
    [ -r "$1" ] || { echo missing; return; }
    read -r size <"$1"
    # Two pages one below the other are common.
    [ "${size%,*}" = 800 ] && [ "${size#*,}" -ge 480 ] || echo "$size pixels"
}
is_folder() {
    if ! [ -d "$1" ]; then echo missing; elif ! [ -w "$1" ]; then echo "not writable"; fi
}
is_program() {
    if ! [ -e "$1" ]; then echo missing; elif ! [ -x "$1" ]; then echo "not executable"; fi
}
is_device() {
    if ! [ -e "$1" ]; then echo missing; elif ! { [ -r "$1" ] && [ -w "$1" ]; }; then
        echo "not readable and writable"
    fi
}
# Nobody else may read what comes in: no getty, no modem manager, no console of the kernel.
is_port() {
    if [ -e "$1" ] && ! [ -c "$1" ]; then echo "not a device"; return; fi
    is_device "$1"
    real=$(readlink -f "$1")
    for pid in $(printf '%s\n' "$descriptors" \
        | sed -n "s|.* /proc/\([0-9]*\)/fd/[0-9]* -> $real\$|\1|p" | sort -u); do
        read -r holder <"/proc/$pid/comm"
        [ "$holder" = ict-agent ] || echo "held by $holder, process $pid"
    done
    ! grep -q "^${real##*/} " /proc/consoles || echo "a console of the kernel"
}
# The loader tells what it would load and starts nothing.
is_loads() {
    [ -x "$1" ] || { echo missing; return; }
    for loader in /lib/ld-linux*.so.* /lib/*/ld-linux*.so.* /lib64/ld-linux*.so.*; do
        "$loader" --verify "$1" || continue
        lacks=$("$loader" --list "$1" 2>&1 | sed -n 's/^[[:space:]]*\(.*\) => not found.*/\1/p')
        [ -z "$lacks" ] || echo "lacks $lacks"
        return
    done
    echo "not a program for this machine"
}
is_plugin() {
    find /usr/lib /usr/local /opt -path "*/$1" 2>/dev/null | grep -q . || echo missing
}
is_set() { if ! [ -e "$1" ]; then echo missing; elif ! [ -w "$1" ]; then echo "not writable"; fi; }
is_number() {
    [ -r "$1" ] || { echo missing; return; }
    read -r value <"$1"
    case $value in
    '' | *[!0-9]*) echo "reads \"$value\"" ;;
    esac
}
is_sound() {
    [ -e "$1" ] || { echo missing; return; }
    can=/sys/class/input/${1##*/}/device/capabilities/snd
    [ -r "$can" ] || return
    read -r sounds <"$can"
    [ "$sounds" != 0 ] || echo "makes no sound"
}
is_pointer() {
    [ -r "$1" ] || { echo missing; return; }
    # shellcheck disable=SC2046 # split into its numbers
    set -- $(tr -d '\000' <"$1")
    [ $# = 7 ] || echo "$# numbers, not 7"
}
is_file() { [ -r "$1" ] || echo missing; }
# The agent's `cp` would write through a link.
is_zone() { [ ! -L "$1" ] || echo "a link to $(readlink "$1"): put a copy in its place"; }
is_net() { [ -e "/sys/class/net/$1" ] || echo missing; }
is_tool() { command -v "$1" >/dev/null || echo missing; }
# The columns of "Fri Nov 21 14:15:30 2025" are what the agent reads.
is_clock() {
    command -v "$1" >/dev/null || { echo missing; return; }
    line=$("$1" -r -u)
    case $line in
    ???" "???" "??" "??:??:??" "[0-9][0-9][0-9][0-9]*) ;;
    *) echo "prints \"$line\": put busybox's first, ln -s /bin/busybox /usr/local/bin/hwclock" ;;
    esac
}
# The attribute is a setting of the script.
is_role() {
    script=$(command -v "$1") || { echo missing; return; }
    fault=$(is_set "$(sed -n 's/^SWITCH=\([^ ]*\).*/\1/p' "$script")")
    [ -z "$fault" ] || echo "its SWITCH is $fault"
}
is_module() {
    [ -e "/sys/module/$1" ] || grep -qs "/$1\.ko" "/lib/modules/$(uname -r)/modules.dep" \
        "/lib/modules/$(uname -r)/modules.builtin" || echo missing
}
is_setting() { grep -qs "^$1=" /etc/default/ict-panel || echo "not in /etc/default/ict-panel"; }
is_font() {
    find /usr/share/fonts /usr/lib/fonts /usr/local/share/fonts -iname "$1*" 2>/dev/null \
        | grep -q . || echo missing
}

case ${1-} in
'') ;;
*)
    echo "Usage: ${0##*/}    (no arguments; run it as root on the panel)" >&2
    exit 2
    ;;
esac

descriptors=$(ls -l /proc/[0-9]*/fd/* 2>/dev/null)
missing=0 lacking=0 good=0
while IFS='|' read -r need kind name without; do
    [ -n "$need" ] || continue
    fault=$("is_$kind" "$name" 2>/dev/null)
    if [ -z "$fault" ]; then
        good=$((good + 1)) verdict=ok without=
    elif [ "$need" = must ]; then
        missing=$((missing + 1)) verdict=MISSING
    else
        lacking=$((lacking + 1)) verdict=absent
    fi
    printf '%-8s%-48s %s\n' "$verdict" "$name" "$fault${without:+: $without}"
done <<ROWS
$rows
ROWS
echo "$good as expected, $missing missing that production needs, $lacking absent that it can spare"
[ "$missing" = 0 ]
