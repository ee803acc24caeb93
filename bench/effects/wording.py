"""The words of the journal: one line of plain text for each thing the agent did to the panel."""
import collections
import dataclasses
import re
import struct

from common.bytetext import printable, unprintable
from common.panel import ICT, flag_file

MODES = {"O_RDONLY": "read-only", "O_WRONLY": "write-only", "O_RDWR": "read-write",
         "O_CREAT": "create", "O_EXCL": "new", "O_TRUNC": "truncate", "O_APPEND": "append",
         "O_NOCTTY": "noctty", "O_NONBLOCK": "nonblock", "O_DSYNC": "dsync",
         "O_SYNC": "synchronous"}
# The terminal's own delays, which are the absence of any.
NO_DELAYS = {"nl0", "cr0", "tab0", "bs0", "vt0", "ff0"}

Step = collections.namedtuple("Step", "kind text at data")  # text: without its place


@dataclasses.dataclass
class Effect:
    """What makes one line."""
    thread: int
    text: str  # of what is no file; else the file's opening
    file: str = ""  # path of a file's steps
    port: str = ""  # whose bytes were received
    fd: int = -1  # of file or port
    child: int = 0  # of a program
    direct: bool = False  # the child became the program
    awaited: bool = False  # and was waited for
    steps: list = dataclasses.field(default_factory=list)
    over: bool = False  # nothing joins it any more
    silence: bool = False  # of a port: a look that found nothing ended it


def is_port(path):
    return path.startswith("/dev/tty")


def short_name(path):
    return path.removeprefix(ICT)


def quoted_bytes(data):
    """Texts in quotes, eight and more equal control bytes as "62 x 00"."""
    parts, end = [], 0
    for run in re.finditer(r"([\0-\x1f])\1{7,}|\Z", data):
        text = data[end:run.start()]
        if parts and re.match("\r\n(?!\n)", text):  # a line padded with zeros ends here
            parts.append(r'"\r\n"')
            text = text[2:]
        if text:
            parts.append(f'"{printable(text)}"')
        if run[0]:
            parts.append(f"{len(run[0])} x {ord(run[1]):02x}")
        end = run.end()
    return re.sub(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d", "<date>", " ".join(parts) or '""')


def open_mode(flags, port=False):
    flags = flags.split("|")
    mode = [word for flag, word in MODES.items() if flag in flags]
    # Every file is closed in programs that are started.
    return " ".join(mode + ["cloexec"] * (port and "O_CLOEXEC" in flags))


def event_text(data):
    events = [data[i:i + 16].encode("latin-1") for i in range(0, len(data), 16)]
    if any(len(event) != 16 or event[:8] != bytes(8) for event in events):
        return "event? " + quoted_bytes(data)
    return ", ".join("event %d %d %d" % struct.unpack("<8xHHi", event) for event in events)


def command_text(words):
    """A program of a bin folder goes by its name alone, unless it is a script of the image."""
    if words[:2] == ("sh", "-c"):
        return "shell " + printable(words[-1])
    words = [f'"{printable(word)}"' if not word or " " in word else printable(word)
             for word in words]
    return " ".join([re.sub(r"^(/usr(/local)?)?/s?bin/(?=[^./]+$)", "", words[0])] + words[1:])


def line_settings(termios):
    def flags(field):
        return re.search(field + r"=([\w|]*)", termios)[1].lower().split("|")

    def character(name):
        return int((re.search(rf"\[{name}\]=(?:\\x|0x)?([\da-f]+)", termios) or "00")[1], 16)

    control, has = [], set()
    speed, bits = "0", "5"
    for flag in flags("c_cflag"):
        if re.fullmatch(r"b\d+", flag):
            speed = flag[1:]
        elif re.fullmatch(r"cs\d", flag):
            bits = flag[2:]
        elif flag in ("parenb", "parodd", "cmspar", "cstopb", "crtscts"):
            has.add(flag)
        else:
            control.append(flag)
    parity = "N" if "parenb" not in has else "EOSM"[("parodd" in has) + 2 * ("cmspar" in has)]
    output = [flag for flag in flags("c_oflag") if flag not in NO_DELAYS]
    words = [speed, bits + parity + "12"["cstopb" in has],
             "rtscts" if "crtscts" in has else "no-flow-control", *control, *flags("c_iflag"),
             *output, *flags("c_lflag")]
    ends = f"min {character('VMIN')} time {character('VTIME')}"
    return " ".join([word for word in words if word] + [ends])


def control_text(call):
    """Of a port's ioctl; empty for mere questions."""
    request, argument, path = call.args[1], (call.args + [""])[2], call.path
    if "TCSETS" in request:
        when = {"W": " drained", "F": " flushed"}.get(request.split("TCSETS")[1][:1], "")
        return f"line {path} {line_settings(argument)}{when}"
    if request == "TCFLSH":
        what = {"TCIFLUSH": "input", "TCOFLUSH": "output"}.get(argument, "both")
        return f"flush {path} {what}"
    fields = struct.unpack("<7I", call.data.encode("latin-1")[:28].ljust(28, b"\0"))
    if request == "TIOCSRS485":
        return "rs485 %s flags %d delays %d %d" % (path, *fields[:3])
    if request == "TIOCSSERIAL":
        return f"serial {path} flags {fields[4]:x} divisor {fields[6]}"
    return ""


def changed_name(call):
    path, target = short_name(call.path), short_name(call.target)
    if call.kind == "remove":
        return f"remove {path}" + ("" if call.ok else f": {call.error}")
    return f"{call.kind} {path}" + (f" to {target}" if target else "")


def folded(lines):
    """With each record of the factory log, which every request repeats, told in one line; only
    where every step of it was taken, in order."""
    file = "file FactoryTestLog.txt"
    opening, date = file + " read-write create append", 'run date "+%Y-%m-%d %H:%M:%S"'
    record = re.compile(file + r': write "<date>\\n(.*)" (\d+) x 00, sync, close')
    told = []
    for line in lines:
        match = record.fullmatch(line)
        # 100 bytes, 20 of them the date and its line end.
        if match and told[-2:] == [opening, date] and \
                len(unprintable(match[1])) + int(match[2]) == 80:
            told[-2:] = [f'log "{match[1]}"']
        else:
            told.append(line)
    return told


def record_text(effect):
    """An item's record: its 64 bytes read, the last character of its text written in place,
    synced."""
    level = re.fullmatch(flag_file("(ICT|T1|BI|T2)"), effect.file)
    kinds = [step.kind for step in effect.steps]
    if not level or effect.text != "read-write" or kinds != ["read", "write", "sync", "close"]:
        return ""
    read, write = effect.steps[:2]
    last = read.at + len(read.data.split("\0")[0]) - 1
    whole = read.at % 64 == 0 and len(read.data) == 64 and len(write.data) == 1
    return f"record {level[1]} {read.at // 64 + 1} {write.data}" if whole and write.at == last \
        else ""


def file_line(effect):
    told, place, steps = [], 0, list(effect.steps)
    while steps:
        kind, text, at, data = steps.pop(0)
        if kind in ("read", "write"):
            # Parts that follow each other are one.
            while steps and steps[0][:2] == (kind, text) and at in (-1, steps[0].at - len(data)):
                data += steps.pop(0).data
            if not text.startswith("event"):
                text += " " + (str(len(data)) if kind == "read" else quoted_bytes(data))
            if at not in (-1, place) and not effect.file.startswith("/dev/input"):
                text += f" at {at}"
            place = at + len(data)
        told.append(text)
    line = " ".join(filter(None, ["file", short_name(effect.file), effect.text]))
    return line + (": " if told else "") + ", ".join(told)


def line_of(effect):
    if effect.port:
        data = "".join(step.data for step in effect.steps)
        told = [quoted_bytes(data)] * bool(data) + ["nothing"] * effect.silence
        return f"receive {effect.port} {', then '.join(told)}"
    if effect.child:
        run = effect.awaited and (effect.direct or ": E" in effect.text)
        verb = "start " if not run else "" if effect.text.startswith("shell ") else "run "
        return verb + effect.text
    return (record_text(effect) or file_line(effect)) if effect.file else effect.text
