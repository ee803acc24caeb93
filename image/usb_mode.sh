#!/bin/sh
# Switches the role of the panel's USB port.
#
#   usb_mode.sh 4    host: sticks can be plugged in
#   usb_mode.sh 1    device: the panel is plugged into a host
#
# The test agent runs it by name, so it stands on the PATH.

# --- Settings of the board ---
SWITCH=/sys/class/usb_role/usb0-role-switch/role   # role switch of the port's controller
MODE_4=host                                        # what each argument writes into it
MODE_1=device
# --- End of settings ---

case "$1" in
4) role=$MODE_4 ;;
1) role=$MODE_1 ;;
*)
    echo "usb_mode.sh: usage: usb_mode.sh 4 | 1" >&2
    exit 1
    ;;
esac

if ! echo "$role" >"$SWITCH"; then
    echo "usb_mode.sh: port not switched: check SWITCH in this script" >&2
    exit 1
fi
