"""bench board: what only drivers can show, on the whole ARM machine; a look at each."""
import functools
import os
import random
import re
import statistics
import subprocess
import tempfile
import time

from commands.boardcuts import cut_power
from commands.boardrig import BoardRig
from common.commandline import CommandLine, number
from common.terminal import say
from common.waiting import wait_for
from station.virtualstand import identity_of

SETTLED = 300  # seconds
ITEM = re.compile(r"^  (\S+) +(-?\d+) +-?\d+   ", re.MULTILINE)  # of a PFVP table


def differs(what, found, wanted):
    """What is wrong with what was found, empty for nothing; `wanted`: a pattern."""
    if re.search(wanted, found):
        return ""
    return f'{what} is "{" ".join(found.split())[:160]}" instead of {wanted}'


def line_settings(rig):
    fault = differs("ttyO1", rig.run("stty -a -F /dev/ttyO1 2>/dev/null"),
                    r"(?s)^speed 9600.*\bparenb -parodd.*cs8.* -cstopb.* crtscts.*inpck")
    # Those that the port has at any moment while the request runs.
    rig.run("(for i in $(seq 60); do stty -a -F /dev/ttyO4; usleep 15000; done "
            ">/tmp/lines 2>/dev/null) &")
    rig.ask("8107")
    during = rig.run("cat /tmp/lines; rm /tmp/lines")
    fault += differs("ttyO4 in the RS-422 test", during,
                     r"(?s)speed 19200 baud;[^;]*;[^s]*.*?-parenb.*?cs8")
    return fault + differs("ttyO4 as RS-485", during, r"(?s)speed 9600.*?parenb -parodd.*?cs7")


def peer_holds_cts(rig):
    """Nothing leaves while the peer's CTS is off. The emulator raises the line again at a reset
    only."""
    rig.do("cts off")
    before = rig.run("grep -o tx:[0-9]* /proc/tty/driver/serial | head -n 1")
    answer = rig.ask("8000", timeout_ms=3000)
    driver = rig.run("grep ^0: /proc/tty/driver/serial")
    rig.do("cts on")
    rig.do("off")
    rig.power_on()
    return ("answered although CTS is off; " if answer else "") \
        + differs("the driver", driver, f"^(?!.*CTS).*{before.strip()} ") \
        + differs("the answer once CTS is on", rig.ask("8000"), "^8000$")


def burn_in_line(rig):
    """At BI the PC link is RS-485."""
    rig.do("off")
    rig.do("level BI")
    rig.power_on()
    return differs("ttyO3", rig.run("stty -a -F /dev/ttyO3 2>/dev/null"),
                   r"(?s)^speed 9600.*\bparenb -parodd.*cs7.* -cstopb.* -crtscts.*inpck") \
        + differs("the answer", rig.ask("8500"), "^8500$")


def pfvp_ems(cycles):
    """What `bench pfvp` says of two boards, and its exit status."""
    with tempfile.TemporaryDirectory() as folder:
        # Ctrl-C is for this program alone, which ends that one.
        with subprocess.Popen([os.environ["BENCH"], "pfvp", "ems", "--board", "--cycles",
                               str(cycles), "--screenshot", f"{folder}/ems.png"], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              start_new_session=True) as bench:
            try:
                said = bench.communicate()[0]
            except BaseException:
                bench.terminate()
                bench.wait()
                raise
    return said, bench.returncode


def two_boards(rig):
    """A request to a USB port may just miss the peer, which looks at its ports in turn. On a busy
    machine a third cycle may be counted, too, which `bench pfvp` finds wrong."""
    rig.do("off")
    said, status = pfvp_ems(2)
    fault = differs("the driver of ttyUSB0", said, r"(?m)^ttyUSB0: .*/ftdi_sio$")
    fault += differs("the driver of ttyGS0", said, r"(?m)^ttyGS0: g_serial .* /dev/ttyGS0$")
    items = ITEM.findall(said)
    for need, passes in items:
        if int(passes) < (1 if need.startswith("usb") else 2):
            fault += f"{need} passed in {passes} of 2 cycles; "
    return fault + (said.strip().rpartition("\n")[2] if status not in (0, 1) or not items else "")


def break_on_the_line(rig):
    """A break comes as one zero byte, no request; what comes after a pause is answered."""
    rig.do('monitor chardev-send-break {"id": "link"}')
    driver = rig.run("sleep 2; grep ^0: /proc/tty/driver/serial")
    return differs("the driver", driver, "brk:1") \
        + differs("the answer", rig.ask("8000"), "^8000$")


def frame_buffer(rig):
    """The panel answers before it paints."""
    rig.ask("9510", "0080FF")
    fault = ""

    def painted():
        nonlocal fault
        pixels = rig.run("for y in 0 239 479; do dd if=/dev/fb0 bs=4 count=1 "
                         "skip=$((y * 800 + 799)) 2>/dev/null; done | od -A n -t x4")
        fault = differs("a pixel", pixels, r"^\s*(..0080ff\s*){3}$")
        return not fault
    wait_for(painted, SETTLED)
    return fault


def touch(rig):
    """What comes through it is looked at in production."""
    seen = rig.run("ls -l /proc/$(pidof ict-agent)/fd | grep -c /dev/input/event0")
    return differs("readers of the touch device", seen, r"^1\s*$")


def sound(rig):
    rig.do("events")  # those before are no matter
    answer = rig.ask("9201")
    return differs("the answer", answer, "^9201$") \
        + differs("what the driver got", rig.do("events"), '^"18,3,99 18,2,1000 18,2,0"$')


def clocks(rig):
    before = rig.run("cat /sys/class/rtc/rtc0/since_epoch")
    rig.run("usleep 1500000")
    after = rig.run("cat /sys/class/rtc/rtc0/since_epoch; date -u +%s")
    fault = differs("the date", rig.run("date -u +%Y"), "^2015")
    figures = re.fullmatch(r"(\d+)\s+(\d+)\s+(\d+)\s+", before + after)
    was, rtc, system = map(int, figures.groups()) if figures else (0, 0, 0)
    if rtc <= was or abs(rtc - system) > 2:
        fault += f"the RTC stands or is not the system's time: {before}{after}"
    return fault + differs("the clock test", rig.ask("8C00"), "^8C00$")


def nand(rig):
    return differs("the sum of /dev/mtd0", rig.ask("AA00"), "^" + identity_of(rig)["crc"]) \
        + differs("its driver", rig.run("cat /proc/mtd"), "mtd0: 00020000 .*NAND")


def medium(name, code, refusal, folder, device, rig):
    """Exported logs lie on the medium; without it the export fails, and with it again it does
    not."""
    def becomes(act, status):
        rig.do(f"{act} {name}")
        return wait_for(lambda: rig.run(f"[ -d {folder} ]; echo $?").strip() == status, SETTLED)
    fault = differs("the answer", rig.ask(code), f"^{code}$")
    fault += differs("the medium", rig.run(f"ls {folder}; grep {folder} /proc/mounts"),
                     rf"FactoryTestLog.txt(.|\n)*{device}")
    fault += "" if becomes("unplug", "1") else "still mounted when unplugged; "
    fault += differs("the answer without it", rig.ask(code), f"^{refusal}$")
    fault += "" if becomes("plug", "0") else "not mounted when plugged in again; "
    return fault + differs("the answer then", rig.ask(code), f"^{code}$")


def board_check(rig):
    whole = rig.run("check-panel.sh; echo status $?")
    rig.do("absent /dev/ttyO4")
    rig.run("mv /etc/default/ict-panel /tmp; mv /dev/mtd0 /dev/mtd0.away")
    lacking = rig.run("check-panel.sh; echo status $?")
    rig.run("mv /tmp/ict-panel /etc/default; mv /dev/mtd0.away /dev/mtd0")
    rig.do("present /dev/ttyO4")
    return differs("its table", whole, r"^(?!(.|\n)*MISSING)(.|\n)*status 0") \
        + differs("its table without ttyO4 and mtd0", lacking,
                  r"MISSING /dev/ttyO4(.|\n)*MISSING /dev/mtd0(.|\n)*2 missing(.|\n)*status 1") \
        + differs("its table without settings", lacking, "absent  QT_FONT_DPI")


LOOKS = {  # what each finds wrong, empty for nothing
    "line settings": line_settings,
    "a break on the line": break_on_the_line,
    "frame buffer": frame_buffer,
    "touch device": touch,
    "sound events": sound,
    "clocks": clocks,
    "NAND": nand,
    "USB stick, hot-plugged":
        functools.partial(medium, "usb", "CC10", "CCE0", "/media/sda1", "/dev/sd[a-z]1"),
    "SD card":
        functools.partial(medium, "sd", "CC11", "CCE1", "/media/mmcblk0p1", "/dev/mmcblk0p1"),
    "check-panel.sh": board_check,
    # From here on each restarts the machine.
    "CTS held by the peer": peer_holds_cts,
    "the link at BI": burn_in_line,
    "two boards cabled together, EMS": two_boards,
}


def say_figures(rig):
    """Not judged: the emulator is as fast as the machine that it runs on."""
    times = []
    for _ in range(200):
        begin = time.monotonic()
        rig.ask("8000")
        times.append(int(1000 * (time.monotonic() - begin)))
    say(f'"8000" {statistics.median(times):g} ms in the median, {max(times)} ms at the latest of '
        f"{len(times)}")
    say(rig.run("/board/figures"))


def look_at_all(rig, part):
    wrong = 0
    for name, find in LOOKS.items():
        if part not in name:
            continue
        fault = find(rig)
        wrong += bool(fault)
        say(f" FAIL {name}: {fault}" if fault else f" ok   {name}", bool(fault))
    say("Not looked at: parity errors, which the emulated UART does not have")
    return int(wrong > 0)


def main(words):
    parser = CommandLine(
        "board",
        "Looks at what only drivers can show on the whole ARM machine of tools/board.sh.\n"
        "Exit status 0 if all of it is as it must be.")
    add = parser.add_argument
    add("--cuts", metavar="COUNT", type=number(1, 1000000),
        help="Instead cut the power so many times at random moments of production.")
    add("--figures", action="store_true",
        help="Instead print speed and size of the agent beside an empty window.")
    add("--seed", metavar="NUMBER", type=number(0, 2**31 - 1), default=1,
        help="Of the moments; repeats them (default 1).")
    add("part", metavar="PART", nargs="?", default="",
        help="Only the looks with this in their name.")
    args = parser.parse_args(words)
    if args.cuts:
        return cut_power(args.cuts, args.seed)
    with BoardRig() as rig:
        rig.write("/dev/mtd0", random.Random(1).randbytes(131072).decode("latin-1"))
        rig.power_on()
        if args.figures:
            say_figures(rig)
            return 0
        return look_at_all(rig, args.part)
