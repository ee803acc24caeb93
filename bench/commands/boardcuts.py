"""Cuts of the ARM machine's power in the middle of production. The panel's data lie on an ext4 disk
of their own; the emulator stops between two instructions and resets the machine."""
import dataclasses
import random
import time

from commands.boardrig import BoardRig
from common.bytetext import printable
from common.failure import Failure
from common.panel import LEVEL_FILE, SEMI_ID_FILE, flag_file
from common.terminal import say

LONGEST = 6000  # milliseconds from the open link to the cut
NEXT = {"ICT": "T1", "T1": "BI", "BI": "T2", "T2": "ICT"}

# Requests of a pass; the line of their item in the results of the levels that have it.
PASS = {
    "8000": {"ICT": 3, "T1": 3, "T2": 3}, "8500": {"ICT": 6, "T1": 6, "BI": 1, "T2": 6},
    "AB00": {"ICT": 0, "T1": 0, "T2": 0}, "9003": {"T1": 17, "BI": 3},
    "A200": {"ICT": 12, "T1": 13, "BI": 4}, "0602": {"ICT": 9},
}


@dataclasses.dataclass
class Known:
    """What may be on the disk after a cut."""
    level: str = "ICT\n"  # confirmed
    asked: str = "ICT\n"  # for last
    items: list = dataclasses.field(default_factory=list)  # of the level: results each may have
    open: int = -1  # the item asked for last: its result may not have been written
    result: str = ""  # of `open`, once answered
    id: str = ""  # confirmed
    new_id: str = ""  # asked for last
    compared: int = 0  # results looked at
    settled: int = 0  # those of them with one legal value


def results_at(rig, level):
    """The results of a level as its file has them, one character each."""
    text = rig.run(rf"tr '\000' ' ' <{flag_file(level)}")
    return "".join(line.strip()[-1] for line in text.split("\n") if line.strip())


def ask_item(rig, code, item, timeout_ms, known):
    """False if the panel did not answer in time. The request answered before this one has left its
    result on the disk then."""
    if item >= len(known.items):
        raise Failure(f"The results of {rig.level} have no line {item + 1}")
    before, its_result = known.open, known.result
    known.items[item] += "F1"  # while running as failed
    stores = code == "0602"
    answer = rig.ask(code, known.new_id if stores else "", timeout_ms)
    if not answer:
        return False
    if before not in (-1, item):
        known.items[before] = its_result
    known.open = item
    known.result = "1" if answer.startswith("KLV-") or answer == code else "F"
    if stores:
        known.id = known.new_id
    return True


def work(rig, cut_ms, turn, draw, known):
    """One power-up until the cut, `cut_ms` after the panel's link is open: rounds of the items, of
    which every second finds the memory wrong, and at times the change to the next level."""
    end = time.monotonic() + cut_ms / 1000

    def left():  # milliseconds
        return max(1, int(1000 * (end - time.monotonic())))
    known.new_id = f"SEMI2511{turn:04}"
    while time.monotonic() < end:
        rig.do("fault ddr" if turn % 2 else "mend ddr")
        turn += 1
        for code, items in PASS.items():
            if rig.level in items and not ask_item(rig, code, items[rig.level], left(), known):
                return
        if draw.randrange(3) == 0 and time.monotonic() < end:
            known.asked = f"{NEXT[rig.level]:3}\n"
            if "PASS" in rig.ask("KLV-", NEXT[rig.level], left()):
                known.level = known.asked
            time.sleep(left() / 1000)
            return


def lost(rig, level_before, known):
    """What the panel has lost or broken, after it has booted again."""
    level = rig.run(f"cat {LEVEL_FILE}")
    identity = rig.run(f"cat {SEMI_ID_FILE} 2>/dev/null")
    kernel = rig.run(r"dmesg | grep -i 'ext4-fs.*\(error\|corrupt\)'")
    fault = ""
    if level not in (known.level, known.asked):
        fault += f"level {printable(level)} instead of {printable(known.level)}; "
    # The results of the level to come are removed first.
    results = results_at(rig, level_before)
    for i, legal in enumerate(known.items):
        known.compared += 1
        known.settled += len(legal) == 1
        result = results[i:i + 1]
        if not result or result not in legal:
            fault += f'item {i + 1} is "{result}", not one of "{legal}"; '
    if not identity.startswith((known.id, known.new_id)):
        fault += f"ID {identity} instead of {known.id}; "
    if kernel:
        fault += "file system: " + kernel
    known.level = known.asked = level
    known.id = known.new_id = identity.strip()
    return fault


def cut_once(rig, number, seed, known):
    """Whether something was lost."""
    # Of its own, for how much is drawn until a cut is up to how fast the machine is.
    draw = random.Random(f"{seed} {number}")
    cut_ms, level = draw.randrange(LONGEST), rig.level
    known.items, known.open = list(results_at(rig, level)), -1
    work(rig, cut_ms, number, draw, known)
    rig.do("off")
    rig.power_on()
    fault = lost(rig, level, known)
    journal = rig.run("dmesg | grep -o 'recovery complete' || echo clean").strip()
    say(f" {'FAIL' if fault else 'ok  '} cut {number + 1} at {level} after {cut_ms} ms: "
        f"boots at {rig.level}, {journal} {fault}", bool(fault))
    return bool(fault)


def cut_power(cuts, seed):
    """Cuts the power so many times and looks at what is left each time. Exit status 0 if nothing is
    lost."""
    known, wrong, done = Known(), 0, 0
    try:  # around the machine, which Ctrl-C ends in the middle of its boot, too
        with BoardRig(own_disk=True) as rig:
            rig.power_on()
            for done in range(cuts):
                wrong += cut_once(rig, done, seed, known)
            done = cuts
    except KeyboardInterrupt:
        say("Interrupted: the figures are of the part that was done")
    say(f"{done} cuts (seed {seed}), {wrong} wrong; {known.compared} results compared, "
        f"{known.settled} of them with one legal value", bool(wrong))
    return int(wrong > 0 or done < cuts)
