"""bench effects: what requests do to a virtual panel whose agent is traced, and the comparison with
the texts of tests/effects, whose README.md explains their form."""
import argparse
import dataclasses
import difflib
import itertools
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import textwrap
import time

import strace
from journal import Journal
from wording import unprintable

DEADLINE = 120  # seconds
IDLE_TURNS, DEAF_TURNS = 2, 20
ITEMS = pathlib.Path(__file__).parent.parent / "plans" / "items.json"
LEVEL_FILE = "/usr/local/ict/HMI_TEST_LEVEL.txt"


class Failure(Exception):
    """The bench itself cannot work; the text says what to do."""


class Panel:
    """A virtual panel on its fixture, off at first, driven through a `bench` of its own. `wrapper`:
    the program that starts the agent."""

    def __init__(self, wrapper=()):
        self._bench = subprocess.Popen(
            [os.environ["BENCH"], "drive", *wrapper], text=True, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE)
        self._root = self._answer()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._bench.stdin.close()
        self._bench.wait()

    def do(self, action):
        """What DrivenPanel knows, or what is done to its files; the answer."""
        verb, _, rest = action.partition(" ")
        path, _, text = rest.partition(" ")
        if verb == "level":
            self.write(LEVEL_FILE, f"{rest:3}\n")
        elif verb == "file":
            self.write(path, unprintable(text))
        elif verb == "remove":
            self.path(path).unlink(missing_ok=True)
        elif verb == "passed":  # every item but the end check
            items = json.loads(ITEMS.read_text())[rest]
            lines = [f"{item}: {int(item != items[-1])}" for item in items]
            self.write(f"/usr/local/ict/HMI_{rest}_TEST_Flag.txt",
                       "".join(line.ljust(62, "\0") + "\r\n" for line in lines))
        else:
            print(action, file=self._bench.stdin, flush=True)
            return self._answer()
        return "ok"

    def _answer(self):
        answer = self._bench.stdout.readline().rstrip("\n")
        if not answer or answer.startswith("error: "):
            raise Failure(answer.removeprefix("error: ") or "its panel cannot be driven any more")
        return answer

    def path(self, path):  # on this machine
        return pathlib.Path(self._root + path)

    def read(self, path):  # empty if there is none
        file = self.path(path)
        return file.read_bytes().decode("latin-1") if file.is_file() else ""

    def write(self, path, text):
        self.path(path).parent.mkdir(parents=True, exist_ok=True)
        self.path(path).write_bytes(text.encode("latin-1"))


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


class Texts:
    """Reads a file of sections, with the definitions of the folder's common.def."""

    def __init__(self, file):
        self.sections, self._definitions = [], {}
        for name in (pathlib.Path(file).with_name("common.def"), pathlib.Path(file)):
            if name.exists() or name.suffix != ".def":
                self._read(name)

    def _read(self, file):
        defining = None
        for number, line in enumerate(file.read_text().split("\n"), 1):
            self._place = f"{file}:{number}: "
            name = line[2:].strip()
            if not line.strip():
                defining = None
            elif line.startswith("@ "):
                if name in self._definitions:
                    raise Failure(f"{self._place}there is another {line}")
                defining = self._definitions[name] = []
            elif defining is not None:
                defining.append(line)
            elif line.startswith("= "):
                self.sections.append(Section(name, line=number))
            elif not line.startswith("#"):
                self._add(line)

    def _add(self, line):
        if line.startswith("@"):
            return self._use(*line[1:].split())
        if not self.sections:
            raise Failure(self._place + 'a line before the first "= REQUEST"')
        section = self.sections[-1]
        # Runs of blanks after the first word and at a wrapped line's start are for the eye.
        plain = re.sub(r"^(\S+)\s+", r"\1 ", line.removeprefix("- ").strip())
        if line.startswith("- "):
            section.conditions.append(plain)
        elif line[0].isspace() and section.effects:
            section.effects[-1] += " " + line.strip()
        else:
            section.effects.append(plain)

    def _use(self, name, *words):
        """ "@NAME A B": $1 is A, $2 is B. "@NAME 1..20": once for each number, $01 being it in two
        digits."""
        if name not in self._definitions:
            raise Failure(f"{self._place}nobody has defined @{name}")
        counts = re.fullmatch(r"(\d+)\.\.(\d+)", words[0]) if words else None
        for n in range(int(counts[1]), int(counts[2]) + 1) if counts else [0]:
            given = {"$01": f"{n:02}"}
            given |= {f"${i}": word for i, word in enumerate(words, 1)}
            given |= {"$1": str(n)} if counts else {}
            for line in self._definitions[name]:
                self._add(re.sub(r"\$(01|\d)", lambda match: given.get(match[0], match[0]), line))


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


def print_effects(title, lines):
    """Long lines are wrapped between their parts, as those of the expected texts may be."""
    print(f"= {title}")
    for line in lines:
        verb, _, rest = line.partition(" ")
        # Blanks inside quotes, and those of a command line, hold together.
        kept = re.sub(r'"(?:[^"\\]|\\.)*"', lambda text: text[0].replace(" ", "\0"), rest)
        kept = kept.replace(" ", "\0") if verb == "shell" else kept
        print(textwrap.fill(f"{verb:7} " + kept, 100, subsequent_indent=" " * 8,
                            break_long_words=False, break_on_hyphens=False).replace("\0", " "))
    print(flush=True)


def compare(files):
    different = 0
    for file in files:
        with Session() as session:
            for section in Texts(file).sections:
                seen = session.run(section)
                same = seen == section.effects
                different += not same
                print("same   " if same else "DIFFERS", f"{file}:{section.line}  {section.title}")
                print("".join(line + "\n" for line in difflib.unified_diff(
                    section.effects, seen, "expected", "seen", n=99, lineterm="")),
                    end="", flush=True)
    return int(different > 0)


def main():
    parser = argparse.ArgumentParser(
        prog="bench effects", formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Prints, in order, what each request makes the agent do to a virtual panel: "
        "ports with\ntheir line settings, bytes, commands, files and syncs, input events, pauses, "
        "and what\nstays open. tests/effects/README.md explains the lines.",
        epilog='Examples: bench effects --level T1 8102 "0601 KLV1234X5W00001205"\n'
        "          bench effects --compare tests/effects/ict.txt\n"
        "tests/effects is in the source tree; the package has it in /usr/share/doc/ict-bench.")
    add = parser.add_argument
    add("--level", default="ICT", help="level at which the panel starts (default ICT)")
    add("--boot", action="store_true", help="print what the start does, too")
    add("--agent-args", help="arguments of the agent, for a run mode; print the start")
    add("--fault", action="append", default=[],
        help="a fault of panel or fixture during each request; may be repeated")
    add("--condition", action="append", default=[],
        help="any other condition, as in the expected texts; may be repeated")
    add("--compare", action="store_true",
        help="the arguments are files of expected texts: run and compare them")
    add("request", nargs="*", metavar="REQUEST",
        help='CODE or "CODE ARGUMENT" as `bench send` takes them, or the bytes between quotes')
    args = parser.parse_args()
    if args.compare:
        return compare(args.request)
    with Session() as session:
        agent = [f"agent {args.agent_args}"] * bool(args.agent_args)
        start = session.run(Section("boot", [f"level {args.level.upper()}"] + agent))
        if args.boot or agent:
            print_effects("boot", start)
        faults = [f"fault {fault}" for fault in args.fault]
        for request in args.request:
            print_effects(request, session.run(Section(request, args.condition + faults)))
    return 0


def run(program):
    """The exit status of a command."""
    try:
        return program()
    except (Failure, OSError) as failure:
        print(f"bench {pathlib.Path(sys.argv[0]).stem}: {failure}", file=sys.stderr)
        return 2
    except KeyboardInterrupt:
        return 1


if __name__ == "__main__":
    sys.exit(run(main))
