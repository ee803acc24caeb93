"""bench cuts: every state in which a cut of power could leave the panel's files, booted and
judged."""
import argparse
import concurrent.futures
import contextlib
import dataclasses
import queue
import re
import sys

from effects import LEVEL_FILE, Panel, Section, Session, run
from journal import printable

# The panel's files that a boot takes notice of are the texts of a dictionary, by path: those of
# /usr/local/ict but scripts and logs, the pointer calibration and the time zone.
ICT, POINTERCAL, ZONE = "/usr/local/ict/", "/etc/pointercal", "/etc/localtime"
LOG = ICT + "FactoryTestLog.txt"
SECTOR = 512


def is_state(path):
    return path in (POINTERCAL, ZONE) or (
        path.startswith(ICT) and path.count("/") == 4 and not path.endswith(".sh")
        and "Log" not in path and "Resume" not in path)


def state_of(panel):
    paths = [ICT + file.name for file in panel.path(ICT).iterdir()] + [POINTERCAL, ZONE]
    return {path: panel.read(path) for path in paths if is_state(path)
            and panel.path(path).is_file() and not panel.path(path).is_symlink()}


def put_state(panel, state):
    """Makes the panel, which is off, factory-new but for these files."""
    panel.do("new")
    for path in state_of(panel):
        panel.path(path).unlink()
    for path, text in state.items():
        panel.write(path, text)


class Model:
    """Which states a cut can leave after each of the agent's calls. What was synced is there. Of a
    file that was not, any of its contents since may be there: none (created or removed), empty,
    each later one, at each later length; of a write also what lies within the old length, or before
    the end of a sector: a sector is stored whole or not at all. A file knows nothing of another."""

    def __init__(self, start):
        self.now = dict(start)  # as programs on the panel see it
        self._possible = {}  # by path, of the files that are not settled; None: no such file

    def _offer(self, path, text):
        if text not in self._possible.setdefault(path, []):
            self._possible[path].append(text)

    def _become(self, path, text):
        self._offer(path, self.now.get(path))
        self._offer(path, text)
        self.now.pop(path, None)
        if text is not None:
            self.now[path] = text

    def _written(self, call):
        path, old, data = call.path, self.now.get(call.path, ""), call.data[:call.result]
        at = len(old) if call.at < 0 else call.at
        end = at + len(data)
        places = range((at // SECTOR + 1) * SECTOR, end, SECTOR)
        for place in [max(at, len(old))] * (end > len(old)) + [*places, end]:
            self._become(path, old[:at].ljust(at, "\0") + data[:place - at] + old[place:])

    def add(self, call):
        """False if the call left these files alone."""
        path = call.path
        if not call.ok or (call.kind != "sync" and not is_state(path)):
            return False
        if call.kind == "open":
            new = "O_CREAT" in call.text and path not in self.now
            if not new and "O_TRUNC" not in call.text:
                return False
            self._become(path, "")
        elif call.kind == "write":
            self._written(call)
        elif call.kind == "truncate":
            def resized(text):
                return text[:call.at].ljust(call.at, "\0")
            # Lengths and bytes reach the medium each in their own time.
            for text in list(self._possible.get(path, ())):
                if text is not None:
                    self._offer(path, resized(text))
            self._become(path, resized(self.now.get(path, "")))
        elif call.kind == "rename":
            self._become(call.target, self.now.get(path, ""))
            self._become(path, None)
        elif call.kind == "remove":
            self._become(path, None)
        elif call.kind == "sync":
            self._possible.clear()
        elif call.kind == "sync_file":
            self._possible.pop(path, None)
        else:
            return False
        return True

    def states(self):
        states = [self.now]
        for path, texts in self._possible.items():
            states = [{**state, path: text} for state in states for text in texts]
        return [{path: text for path, text in state.items() if text is not None}
                for state in states]


@dataclasses.dataclass
class Cut:
    """What was done to the panel when its power was cut."""
    before: dict  # before the request or boot
    now: dict  # at the cut, as programs saw it
    target: str  # what the request makes of the level file; as before if it changes no level
    confirmed: bool = False  # the station had its answer
    at_rest: bool = False  # and the panel had done all that belongs to it
    items: frozenset = frozenset()  # which of the level's it may change
    files: dict = dataclasses.field(default_factory=dict)  # what the cut has left
    after: str = "the start"  # the last call


@dataclasses.dataclass
class Revival:
    """What the agent made of it at the next boot."""
    answers: bool  # on the PC link
    level: str = ""  # that it booted at, as its log says
    files: dict = dataclasses.field(default_factory=dict)


def boot_level(state):
    level = state.get(LEVEL_FILE, "")[:2]
    return level if level in ("T1", "BI", "T2") else "ICT"


def flag_file(level):
    return f"{ICT}HMI_{level}_TEST_Flag.txt"


def passed_items(state, level):
    flags = state.get(flag_file(level), "")
    return {place // 64 + 1 for place in range(0, len(flags) - 63, 64)
            if flags[place:].split("\0")[0].strip().endswith("1")}


def granted(state, level):
    """Items that a boot passes by itself: what the factory of the machine ID is spared."""
    machine = state.get(ICT + "HMI_MACHINE_ID.txt", "")
    numbered = len(machine) > 9 and machine[9 if len(machine) == 18 else 8] == "W"
    return {14, 16} if level == "T1" and numbered \
        else {5} if level == "BI" and not numbered else set()


def is_calibration(text):
    """As the agent writes it, and every reader takes it up to its zero byte."""
    return bool(re.match(r"(-?\d+ ){6}-?\d+\0", text))


def verdict(cut, revival):
    """What is wrong with it; empty for nothing. A level is the one before or the target, and the
    target once it was confirmed; a new level begins without results; no item is passed or lost that
    the request does not test; a confirmed identity is there; the calibration can be used."""
    if not revival.answers:
        return "the panel does not answer"
    files, level = revival.files, boot_level(revival.files)
    text, before = files.get(LEVEL_FILE, ""), cut.before.get(LEVEL_FILE, "ICT\n")
    # Of a level file that never was anything may be there that reads as ICT, where a panel begins.
    begins = LEVEL_FILE not in cut.before and level == "ICT" and not text.startswith("HMI")
    if text != cut.target and (text != before or cut.confirmed) and not begins:
        return f'the level reads "{printable(text)}"'
    if revival.level != level:
        return f"it booted at {revival.level}"
    wrong = wrong_items(cut, files, level)
    if wrong:
        return wrong
    for name in ("MACHINE_ID", "SEMIMACHINE_ID", "STATION_NUM"):
        path = f"{ICT}HMI_{name}.txt"
        if cut.confirmed and path in cut.now and files.get(path, "") != cut.now[path]:
            return f'{name} reads "{printable(files.get(path, ""))}"'
    # An empty backup counts as none.
    current, backup = files.get(POINTERCAL, ""), files.get(ICT + "pointercal", "")
    if not is_calibration(current) or not (backup == "" or is_calibration(backup)):
        return f'the calibration reads "{printable(current)}", its backup "{printable(backup)}"'
    return ""


def wrong_items(cut, files, level):
    spared = granted(files, level)
    passed, was = passed_items(files, level) - spared, passed_items(cut.before, level)
    there = flag_file(level) in cut.now
    if level == boot_level(cut.before) and not cut.at_rest and (not cut.confirmed or there):
        may, must = was | cut.items, was - cut.items if there else set()
    else:
        may = must = passed_items(cut.now, level)
    more, fewer = passed - may, must - spared - passed
    return f"items passed that had not: {sorted(more)}; lost: {sorted(fewer)}" \
        if more or fewer else ""


@dataclasses.dataclass
class Row:
    """One operation: what is prepared, what is done (a section of `bench effects`), and the text
    that tells the station it is done; none where the panel is not asked."""
    name: str
    before: list
    done: Section
    reply: str = ""
    target: str = None  # of the level file, where it changes


def section(title, *conditions):
    # Something is to happen in each: a request that a busy machine tore apart is repeated.
    return Section(title, list(conditions), ["anything"])


def at(level, following=None):
    """A panel at `level` that has booted, every item of it and of the level it goes to passed: old
    results that no way may bring back."""
    return ["do new", f"do level {level}"] + [
        f"do passed {name}" for name in dict.fromkeys((level, following)) if name] + ["boot"]


SAVED = r"do file /usr/local/ict/pointercal 12800 3 -5 -7 7680 11 65536\x00"
ROWS = [
    Row("first boot", ["do new"], section("boot"), "", "ICT\n"),
    *(Row(f"first boot at {level}", ["do new", f"do level {level}"], section("boot"))
      for level in ("T1", "BI", "T2")),
    Row("boot with a flag file cut short",
        ["do new", "do level ICT", "do passed ICT",
         f"do file {flag_file('ICT')} 01.Model Test: 1"], section("boot")),
    Row("item passed at ICT", ["do new", "boot"], section("8000"), "8000"),
    Row("item failed at T1", at("T1"), section("8102", "fault com1-485"), "81F2"),
    Row("item passed at BI", ["do new", "do level BI", "boot"], section("9504"), "9504"),
    Row("item passed at T2", ["do new", "do level T2", "boot"], section("8500"), "8500"),
    Row("end check of ICT", at("ICT", "T1"), section("0400"), "0400", "T1 \n"),
    Row("end check of T1", at("T1", "BI"), section("0100"), "0100", "BI \n"),
    Row("end check of BI", at("BI", "T2"), section("0200"), "0200", "T2 \n"),
    Row("end check of T2", at("T2"), section("0300"), "0300", "HMI\n"),
    Row("end check that fails", ["do new", "do level T1", "boot"], section("0100"), "01F0"),
    Row("extended end check", at("T1") + ["8D 0", "boot", "8E 0"], section("0101"), "0101",
        "HMI\n"),
    Row("extended end check that is refused", at("T1"), section("0101"), "01FF"),
    *(Row(f"forced change to {to}", at(level, to), section(f"KLV- {to}"), f"{to}_PASS",
          f"{to:3}\n")
      for level, to in (("T2", "ICT"), ("ICT", "T1"), ("T1", "BI"), ("BI", "T2"))),
    Row("forced change to HMI", at("T1"), section("KLV- HMI"), "HMI_PASS", "HMI\n"),
    Row("forced change to the same level", at("T1"), section("KLV- T1"), "T1_PASS", "T1 \n"),
    Row("forced change to nowhere", at("T1"), section(r'"KLV-100-99\r\n"'), "", ""),
    Row("back to T1 by the button",
        ["do new", "do level HMI", "do passed T1", "do passed T2", "boot agent PFVP_SLAVE"],
        section("do tap 665 420", "until Goto T1 Pass"), "", "T1 \n"),
    Row("calibration, the first", at("T1"), section("9000", "during calibrate"), "9000"),
    Row("calibration, another", at("T1") + [SAVED], section("9004", "during calibrate3"), "9004"),
    Row("calibration that fails", at("T1") + [SAVED],
        section("9000", "fault touch:bend=40", "during calibrate"), "90F0"),
    Row("touch check", at("T2"), section("9001", "during check"), "9001"),
    Row("machine ID", at("T1"), section("0601 KLV1234X5W00001205"), "0601"),
    Row("machine ID, a shorter one",
        at("T1") + [f"do file {ICT}HMI_MACHINE_ID.txt KLV12345T0000001299999"],
        section("0601 KLV12345T00000012"), "0601"),
    Row("semi-finished machine ID", at("ICT"), section("0602 KLV12345T0000001"), "0602"),
    Row("station number", at("T1"), section("8A00"), "8A00"),
    Row("clock", at("T1"), section("8D 0"), "8D00"),
]


def key(state):
    return frozenset(state.items())


class Enumeration:
    """Every cut of one operation, in the order of its calls, those alike in all that the verdict
    asks for once."""

    def __init__(self, row, before):
        self.cuts, self.calls = [], 0
        self._row, self._model, self._seen = row, Model(before), set()
        level = before.get(LEVEL_FILE, "ICT\n")
        self._cut = Cut(before, before, level if row.target is None else row.target)
        self._take()

    def add(self, call):
        reply = self._row.reply
        if reply and call.kind == "write" and call.path.startswith("/dev/tty"):
            self._cut.confirmed |= reply in call.data
        elif not self._model.add(call):
            return
        self.calls += 1
        now, level = dict(self._model.now), boot_level(self._cut.before)
        if now.keys() == self._cut.now.keys():
            self._cut.items |= passed_items(self._cut.now, level) ^ passed_items(now, level)
        self._cut.now, self._cut.after = now, f"{call.name} {call.path}"
        self._take()

    def rest(self):
        self._cut.at_rest, self._cut.after = True, "the end"
        self._take()

    def _take(self):
        for files in self._model.states():
            cut = dataclasses.replace(self._cut, files=files)
            alike = key(files), key(cut.now), cut.confirmed, cut.at_rest
            if alike not in self._seen:
                self._seen.add(alike)
                self.cuts.append(cut)


def traced(row):
    with Session() as session:
        for step in row.before:
            title, _, agent = step.partition(" ") if step.startswith("boot") else (step, "", "")
            session.run(section(title, *[agent] * bool(agent)))
        found = Enumeration(row, state_of(session))
        session.watch = found.add
        session.run(row.done)
        found.rest()
        return found


def revived(panel, state):
    """Boots a panel that is off and has this state."""
    panel.path(LOG).unlink(missing_ok=True)
    panel.do("on")
    revival = Revival(panel.do("opens") == "yes")
    if revival.answers:
        # Looks at the files before it asks, for some questions are tests with results.
        levels = re.findall("Boot up at (.*)\n", panel.read(LOG))
        revival.level, revival.files = levels[-1] if levels else "", state_of(panel)
        question = "8801" if boot_level(state) == "BI" else "8000"
        revival.answers = panel.do(f"answers {question}") == "yes"
    panel.do("off")
    return revival


class Cuts:
    def __init__(self, panels):
        self.states = 0
        self._panels = queue.SimpleQueue()
        for panel in panels:
            self._panels.put(panel)
        self._pool = concurrent.futures.ThreadPoolExecutor(len(panels))
        self._revived = {}  # by the files before the boot, which depends on nothing else

    def run(self, row):
        """The number of cuts whose outcome is not legal; prints them and the row."""
        found = traced(row)
        states = {key(cut.files): cut.files for cut in found.cuts}
        new = [state for state in states if state not in self._revived]
        for number, (state, revival) in enumerate(
                zip(new, self._pool.map(self._boot, [states[state] for state in new])), 1):
            self._revived[state] = revival
            print(f"\r{row.name}: state {number} of {len(new)} ", end="", file=sys.stderr)
        print(f"\r{'':70}\r", end="", file=sys.stderr)
        illegal = 0
        for cut in found.cuts:
            wrong = verdict(cut, self._revived[key(cut.files)])
            if cut.at_rest and row.reply and not cut.confirmed:
                wrong = f'"{row.reply}" was never answered'
            if wrong:
                illegal += 1
                answered = " (answered)" if cut.confirmed else ""
                print(f"ILLEGAL  {row.name}, cut after {cut.after}{answered}: {wrong}")
        print(f"| {row.name:36} | {found.calls:5} | {len(states):6} | {illegal:7} |", flush=True)
        self.states += len(states)
        return illegal

    def _boot(self, state):
        panel = self._panels.get()
        try:
            put_state(panel, state)
            return revived(panel, state)
        finally:
            self._panels.put(panel)


def main():
    parser = argparse.ArgumentParser(
        prog="bench cuts", formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Cuts the power after each call with which the agent and its programs change "
        "the panel's\nfiles, during first boots, items, end checks and the other OPERATIONs "
        "(default: all).\nPuts every state that this could leave, what was not synced being there "
        "or not, on a\nvirtual panel, boots the agent on it and judges. Prints how many calls and "
        "different\nstates each operation has, and every state that is not legal. Exits 0 if all "
        'are.\nExample: bench cuts "end check of T1" clock')
    parser.add_argument("--list", action="store_true", help="only list the operations")
    parser.add_argument("--panels", type=int, default=2, choices=range(1, 33), metavar="COUNT",
                        help="panels that boot side by side (default 2)")
    parser.add_argument("operation", nargs="*", metavar="OPERATION", help="what to cut")
    args = parser.parse_args()
    names = [row.name for row in ROWS]
    unknown = [name for name in args.operation if name not in names]
    if unknown:
        parser.error(f'no operation "{unknown[0]}"; --list names them')
    if args.list:
        print("\n".join(names))
        return 0
    with contextlib.ExitStack() as stack:
        cuts = Cuts([stack.enter_context(Panel()) for _ in range(args.panels)])
        print("| Operation                            | Calls | States | Illegal |\n"
              "|---|---|---|---|", flush=True)
        illegal = sum(cuts.run(row) for row in ROWS
                      if not args.operation or row.name in args.operation)
    print(f"{cuts.states} states, {illegal} illegal")
    return int(illegal > 0)


if __name__ == "__main__":
    sys.exit(run(main))
