"""A virtual panel whose agent is traced."""
import dataclasses
import itertools
import shutil
import time

from common.failure import Failure
from common.panel import LEVEL_FILE, Panel
from effects import strace
from effects.journal import Journal

DEADLINE = 120  # seconds
IDLE_TURNS, DEAF_TURNS = 2, 20


@dataclasses.dataclass
class Section:
    """One request, or another occasion, and what it must do to a panel."""
    title: str
    conditions: list = dataclasses.field(default_factory=list)
    effects: list = dataclasses.field(default_factory=list)
    line: int = 0  # of the title in its file

    def given(self, verb):
        """What follows it, of each such condition."""
        return [rest for name, _, rest in (c.partition(" ") for c in self.conditions)
                if name == verb]


class Session(Panel):
    """One whose agent is traced. `watch` is told each of the agent's calls, too."""

    def __init__(self):
        if not shutil.which("strace"):
            raise Failure("strace is not installed: apt-get install strace")
        super().__init__(strace.COMMAND)
        self.watch = lambda call: None
        self._journal = None
        self._file = None  # the trace

    def run(self, section):
        """Does what the title says under the conditions, waits until the agent is idle again or
        until the condition says; what it did."""
        for condition in section.conditions:
            self._prepare(condition)
        request = section.title != "boot" and not section.title.startswith("do ")
        if not self._journal and section.title != "boot":
            self._start(Section("boot"))
            self._settle()
        lines = []
        # A request whose bytes a busy machine tore apart is not heard: a station repeats it.
        for _ in range(3 if request and section.effects else 1):
            self._perform(section)
            self._settle((section.given("until") + [""])[0], request)
            lines = self._journal.take()
            if lines:
                break
        for verb, undo in (("fault", "mend"), ("absent", "present")):
            for what in section.given(verb):
                self.do(f"{undo} {what}")
        return lines

    def _prepare(self, condition):
        verb, _, rest = condition.partition(" ")
        if verb == "new":
            self.do("off")
        if verb == "first":
            self.run(Section(rest))
        elif verb not in ("until", "during", "agent"):
            self.do(condition)

    def _perform(self, section):
        if section.title == "boot":
            self._start(section)
        else:
            self._journal.take()
            what = section.title
            self._prepare(what[3:]) if what.startswith("do ") else self.do("ask " + what)
        for action in section.given("during"):
            self.do(action)

    def _start(self, section):
        self.do("off")
        self.do("remove " + strace.FILE)
        self.write(strace.FILE, "")
        self._file = self.path(strace.FILE).open(encoding="latin-1", newline="\n")
        args = " ".join(section.given("agent"))
        link = "/dev/ttyO3" if self.read(LEVEL_FILE).startswith("BI") else "/dev/ttyO1"
        # In the other run modes no port is a link.
        self._reader, self._journal = strace.Reader(), Journal("" if args else link)
        self.do("on " + args)

    def _follow(self):
        for call in self._reader.follow(self._file):
            self._journal.add(call)
            self.watch(call)

    def _settle(self, until="", request=False):
        # What was done to the panel has reached it; rest is what comes after it.
        self._follow()
        self._journal.idle = 0
        end = time.monotonic() + DEADLINE
        for turn in itertools.count(1):
            self._follow()
            # What nobody listens for is not heard.
            turns = DEAF_TURNS if request and not self._journal.heard else IDLE_TURNS
            if self._journal.tells(until) if until else self._journal.idle_turns() >= turns:
                return
            if turn % 8 == 0 and self.do("runs") == "no":
                return self._follow()
            if time.monotonic() > end:
                raise Failure(f'no effect "{until}" came' if until
                              else "the agent does not come to rest")
            time.sleep(0.005)
