"""bench effects: what requests do to a virtual panel whose agent is traced, and the comparison with
the texts of tests/effects, whose README.md explains their form."""
import difflib
import pathlib
import re
import textwrap

from common.commandline import CommandLine, level_name
from common.failure import Failure
from effects.session import Section, Session


class Texts:
    """Reads a file of sections, with the definitions of the folder's common.def."""

    def __init__(self, file):
        self.sections, self._definitions = [], {}
        for name in (pathlib.Path(file).with_name("common.def"), pathlib.Path(file)):
            if name.exists() or name.suffix != ".def":
                self._read(name)

    def _read(self, file):
        defining = None
        try:
            lines = file.read_text("utf-8").split("\n")
        except UnicodeDecodeError:
            raise Failure(f"{file}: not in UTF-8") from None
        for number, line in enumerate(lines, 1):
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


def main(words):
    parser = CommandLine(
        "effects",
        "Prints, in order, what each REQUEST makes the agent do to a virtual panel: "
        "ports with\ntheir line settings, bytes, commands, files and syncs, input events, pauses, "
        "and what\nstays open. tests/effects/README.md explains the lines.",
        epilog='Examples: bench effects --level T1 8102 "0601 KLV1234X5W00001205"\n'
        "          bench effects --compare tests/effects/ict.txt\n"
        "tests/effects is in the source tree; the package has it in /usr/share/doc/ict-bench.")
    add = parser.add_argument
    add("--level", metavar="LEVEL", type=level_name, default="ICT",
        help="Start at this level: ict (default), t1, bi, t2 or hmi.")
    add("--boot", action="store_true", help="Print what the start does, too.")
    add("--agent-args", metavar="ARGS",
        help="Arguments of the agent, for a run mode; print the start.")
    add("--fault", metavar="NAME[:VALUE]", action="append", default=[],
        help="Set this fault during each request; may be given several times.")
    add("--condition", metavar="CONDITION", action="append", default=[],
        help="Any other condition, as in the expected texts; may be given several times.")
    add("--compare", action="store_true",
        help="The arguments are files of expected texts: run and compare them.")
    add("request", nargs="*", metavar="REQUEST",
        help='CODE or "CODE ARGUMENT" as `bench send` takes them, or the bytes between quotes.')
    args = parser.parse_args(words)
    if not args.request and (args.compare or not (args.boot or args.agent_args)):
        parser.error("say which requests, with --compare which files")
    if args.compare:
        return compare(args.request)
    with Session() as session:
        agent = [f"agent {args.agent_args}"] * bool(args.agent_args)
        start = session.run(Section("boot", [f"level {args.level}"] + agent))
        if args.boot or agent:
            print_effects("boot", start)
        faults = [f"fault {fault}" for fault in args.fault]
        for request in args.request:
            print_effects(request, session.run(Section(request, args.condition + faults)))
    return 0
