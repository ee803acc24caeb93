"""What a cut of power can leave of the panel's files, and what may become of it."""
import dataclasses
import re

from common.bytetext import printable
from common.panel import ICT, ID_FILE, LEVEL_FILE, SEMI_ID_FILE, STATION_FILE, flag_file

# The panel's files that a boot takes notice of are the texts of a dictionary, by path: those of
# /usr/local/ict but scripts and logs, the pointer calibration and the time zone.
POINTERCAL, ZONE = "/etc/pointercal", "/etc/localtime"
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
    machine_id: str = ""  # that it stores
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


def passed_items(state, level):
    flags = state.get(flag_file(level), "")
    return {place // 64 + 1 for place in range(0, len(flags) - 63, 64)
            if flags[place:].split("\0")[0].strip().endswith("1")}


def granted(machine, level):
    """Items that a boot passes by itself: what the factory of this machine ID is spared."""
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
    for path in (ID_FILE, SEMI_ID_FILE, STATION_FILE):
        if cut.confirmed and path in cut.now and files.get(path, "") != cut.now[path]:
            name = path.removeprefix(ICT + "HMI_").removesuffix(".txt")
            return f'{name} reads "{printable(files.get(path, ""))}"'
    # An empty backup counts as none.
    current, backup = files.get(POINTERCAL, ""), files.get(ICT + "pointercal", "")
    if not is_calibration(current) or not (backup == "" or is_calibration(backup)):
        return f'the calibration reads "{printable(current)}", its backup "{printable(backup)}"'
    return ""


def wrong_items(cut, files, level):
    old = cut.before.get(ID_FILE, "")
    spared = granted(old, level) | granted(cut.machine_id or old, level)
    passed, was = passed_items(files, level) - spared, passed_items(cut.before, level)
    there = flag_file(level) in cut.now
    if level == boot_level(cut.before) and not cut.at_rest and (not cut.confirmed or there):
        may, must = was | cut.items, was - cut.items if there else set()
    else:
        may = must = passed_items(cut.now, level)
    more, fewer = passed - may, must - spared - passed
    return f"items passed that had not: {sorted(more)}; lost: {sorted(fewer)}" \
        if more or fewer else ""


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
