"""bench cuts: every state in which a cut of power could leave the panel's files, booted and
judged."""
import concurrent.futures
import contextlib
import dataclasses
import queue
import sys

from common.commandline import CommandLine, number
from common.panel import ID_FILE, LEVEL_FILE, Panel, flag_file
from effects.powercut import (Cut, Model, boot_level, passed_items, put_state, revived, state_of,
                              verdict)
from effects.session import Section, Session


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
        at("T1") + [f"do file {ID_FILE} KLV12345T0000001299999"],
        section("0601 KLV12345T00000012"), "0601"),
    # Neither ID is of factory W, whatever a cut leaves of them.
    Row("machine ID, a longer one",
        ["do new", "do level T1", f"do file {ID_FILE} KLV12345TW0000012", "boot"],
        section("0601 KLV1234X5T00001205"), "0601"),
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
        code, _, argument = row.done.title.partition(" ")
        self._cut = Cut(before, before, level if row.target is None else row.target,
                        machine_id=argument if code == "0601" else "")
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
        for count, (state, revival) in enumerate(
                zip(new, self._pool.map(self._boot, [states[state] for state in new])), 1):
            self._revived[state] = revival
            print(f"\r{row.name}: state {count} of {len(new)} ", end="", file=sys.stderr)
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


def main(words):
    parser = CommandLine(
        "cuts",
        "Cuts the power after each call with which the agent and its programs change "
        "the panel's\nfiles, during first boots, items, end checks and the other OPERATIONs "
        "(default: all).\nPuts every state that this could leave, what was not synced being there "
        "or not, on a\nvirtual panel, boots the agent on it and judges. Prints how many calls and "
        "different\nstates each operation has, and every state that is not legal. Exits 0 if all "
        'are.\nExample: bench cuts "end check of T1" clock')
    parser.add_argument("--list", action="store_true", help="Only list the operations.")
    parser.add_argument("--panels", type=number(1, 32), default=2, metavar="COUNT",
                        help="How many panels boot side by side (default 2).")
    parser.add_argument("operation", nargs="*", metavar="OPERATION",
                        help="What to cut (default: all).")
    args = parser.parse_args(words)
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
