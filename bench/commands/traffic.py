"""What goes over the ports of a virtual panel, shown and recorded: what `bench panel --traffic` and
`--record` start. Standard input has a line an event, MS being milliseconds since the start:
    MS on LEVEL               power, and what the panel's level file says
    MS off
    MS note TEXT              what happens beside the ports
    MS PORT -> NUMBER BYTES   bytes, as printable() shows them, into the panel, which has this
                              station number; "<-" from it
    MS quiet                  nothing came for a while
It ends at the end of it."""
import dataclasses
import json
import math
import os
import re
import signal
import sys

from common.bytetext import printable, unprintable
from common.commandline import CommandLine
from common.terminal import say
from station import wire
from station.requests import LEVELS, command_of, meaning_of, refusal

QUIET = 50  # ms; a message without a line end is over when its line has been silent for so long
END = "\n  ]\n}\n"  # of a plan


@dataclasses.dataclass
class Message:
    """One that has begun."""
    arrow: str
    text: str = ""
    number: int = 0
    last: int = 0  # when, in ms


class Record:
    """The exchanges of the PC link as a plan, whole after each step. A plan has one level, so those
    at the level of the first power-on only."""

    def __init__(self, path):
        self._path, self._file = path, open(path, "wb", buffering=0)
        self._level, self._step, self._separator = "", {}, "\n    "

    def begin(self, level):
        if not self._level:
            self._level = level
            self._write(f'{{\n  "level": "{level}",\n  "partial": true,\n  "steps": [{END}')

    def add(self, level, into, text):
        if level != self._level:
            return
        if into:
            self.end_step()
            command = command_of(text)
            self._step = {"name": command.meaning if command else "unknown request", "raw": text}
        elif self._step:
            self._step["bytes"] = self._step.get("bytes", "") + text

    def end_step(self):
        if not self._step:
            return
        self._step |= {"repeats": 0, "timeout": 15000} if "bytes" in self._step else \
            {"repeats": 0, "timeout": 500, "silence": True}
        step = json.dumps(self._step, ensure_ascii=False, sort_keys=True, separators=(",", ":"))
        self._write(self._separator + step + END, len(END))
        self._step, self._separator = {}, ",\n    "

    def _write(self, text, over=0):
        """In place of so many bytes at the end."""
        try:
            self._file.seek(-over, os.SEEK_END)
            self._file.write(text.encode())
        except OSError as error:  # the screen goes on
            print(f"bench panel: cannot write {self._path}: {error.strerror}", file=sys.stderr)


class Traffic:
    """On the screen a line a message: time since the start in seconds, port, direction as the panel
    sees it, the bytes, and on the PC link what they mean. `record`: None for none."""

    def __init__(self, screen, record):
        self._screen, self._record = screen, record
        self._level = ""
        self._code = ""  # of the last request; empty for what is none
        self._deaf = False  # an end check was answered since the power came on
        self._begun = {}  # messages, by the port

    def take(self, line):
        """One event. Silence is told by the times alone, for a line may be read late."""
        time, kind, *rest = line.split(" ", 2)
        ms, text = int(time), "".join(rest)
        self._end_silent(ms)
        if kind == "note":
            self._note(ms, text)
        elif kind in ("on", "off"):
            self._power(ms, kind == "on", text)
        elif kind != "quiet":
            arrow, number, data = text.split(" ", 2)
            self._add(ms, kind, Message(arrow, unprintable(data), int(number)))

    def end(self):
        self._end_silent(math.inf)
        if self._record:
            self._record.end_step()

    def _say(self, line):
        if self._screen:
            say(line)

    def _note(self, ms, what):
        self._say(f"{ms / 1000:9.3f}  -- {what}")

    def _power(self, ms, is_on, level):
        self._deaf = False
        if not is_on:
            return self._note(ms, "power off")
        # Whatever else it says is ICT.
        self._level = level.upper() if level.upper() in LEVELS else "ICT"
        self._note(ms, f"power on, level {self._level}")
        if self._record:
            self._record.begin(self._level)

    def _add(self, ms, port, chunk):
        if port in self._begun and self._begun[port].arrow != chunk.arrow:
            self._finish(ms, port)  # the other side's turn is over
        for part in re.findall(r"[^\n]*\n|[^\n]+", chunk.text):
            message = self._begun.setdefault(port, Message(chunk.arrow))
            message.text += part
            message.number, message.last = chunk.number, ms
            if part.endswith("\n"):
                self._finish(ms, port)

    def _end_silent(self, ms):
        for port, message in sorted(self._begun.items(), key=lambda item: item[1].last):
            if ms - message.last >= QUIET:
                self._finish(message.last + QUIET, port)

    def _finish(self, ms, port):
        message = self._begun.pop(port)
        into, text = message.arrow == "->", message.text
        link = port == ("ttyO3" if self._level == "BI" else "ttyO1")
        meaning = "" if not link else self._request(message) if into else self._answer(text)
        self._say(f"{ms / 1000:9.3f}  {port:<7} {message.arrow} {printable(text):<34} {meaning}")
        if link and self._record:
            self._record.add(self._level, into, text)

    def _request(self, message):
        command = command_of(message.text)
        self._code = command.code if command else ""
        why = "deaf since the end check, until the power is cycled" if self._deaf else \
            refusal(message.text, self._level, message.number)
        return (command.meaning if command else "request") + (why and f", refused: {why}")

    def _answer(self, text):
        if not self._code:
            return ""
        self._deaf = self._deaf or bool(re.fullmatch("0[0-5]..", self._code))  # an end check
        reply = wire.decode(text)
        return "damaged" if reply.kind == wire.DAMAGED else meaning_of(reply.payload, self._code)


def main(words):
    # They are for the panel, whose end is that of the input.
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.SIG_IGN)
    parser = CommandLine("traffic", "Shows and records the events that `bench panel` writes to it.")
    parser.add_argument("--screen", action="store_true", help="show them")
    parser.add_argument("--record", metavar="FILE", help="write the PC link's as a plan")
    args = parser.parse_args(words)
    traffic = Traffic(args.screen, Record(args.record) if args.record else None)
    for line in open(sys.stdin.fileno(), encoding="utf-8", errors="replace", newline="\n"):
        traffic.take(line.rstrip("\n"))
    traffic.end()
    return 0
