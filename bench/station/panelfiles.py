"""What lies on a panel, compared with expected states: texts in the plans' folder that a person can
read. docs/plans.md explains their form."""
import dataclasses
import datetime
import fnmatch
import itertools
import os
import pathlib
import re

from common.bytetext import printable, unprintable
from common.failure import Failure
from common.panel import LEVEL_FILE, flag_file
from common.waiting import until_none
from station import wire
from station.requests import LEVELS, is_failure


@dataclasses.dataclass
class Section:
    """What is expected of one file."""
    path: str
    record_size: int
    is_new: bool
    lines: list = dataclasses.field(default_factory=list)


class PanelFiles:
    """`root`: where the panel's "/" lies on this machine."""

    def __init__(self, root):
        self._root = str(root)
        self._seen = {}  # lines of the files that were compared before, by path
        self.values = {}  # what the names in a state stand for; grows by those that it meets

    def level(self):
        """At which the panel starts next: what its level file says, anything unknown being ICT."""
        level = self.read(LEVEL_FILE).strip().upper()
        return level if level in LEVELS else "ICT"

    def released(self):
        return self.read(LEVEL_FILE) == "HMI\n"

    def read(self, path):  # empty if missing
        try:
            return pathlib.Path(self._root + path).read_bytes().decode("latin-1")
        except OSError:
            return ""

    def differences(self, file, patience):
        """What differs from the state in `file`, a text each. Waits up to `patience` seconds for
        the panel to finish writing."""
        try:
            sections = sections_of(pathlib.Path(file).read_text("utf-8", "replace"))
        except FileNotFoundError:
            return [f"{file} is missing"]
        except OSError as error:
            raise Failure(f"{file} cannot be read: {error.strerror}") from None
        if not sections:
            return [f"{file} names no file of the panel"]
        seen, values = {}, {}

        def find():
            nonlocal seen, values
            seen, values = dict(self._seen), dict(self.values)
            wrong = [self._difference(section, seen, values) for section in sections]
            return [text for text in wrong if text]
        wrong = until_none(find, patience)
        self._seen, self.values = seen, values
        return wrong

    def item_faults(self, level, steps, patience):
        """Items of `level` whose results on the panel are not what it answered in the record's
        `steps`: for panels with faults, whose states nobody has written down."""
        wanted = _results_of(steps, level)

        def find():
            lines = self.read(flag_file(level)).split("\n")
            found = {item: _shown("".join(lines[item - 1:item]), True) for item in wanted}
            return [f"item result on the panel: {found[item]} instead of {result}"
                    for item, result in sorted(wanted.items())
                    if rf": {result}\0" not in found[item]]
        return until_none(find, patience)

    def _difference(self, section, seen, values):
        """Empty for none. What is met goes into `seen` and `values`."""
        found = self._lines_of(section)
        before = seen.get(section.path, []) if section.is_new else []
        seen[section.path] = found
        if found[:len(before)] != before:
            return f"{section.path} has changed where it was written before"
        pairs = itertools.zip_longest(found[len(before):], section.lines)
        for number, (line, expected) in enumerate(pairs, len(before) + 1):
            if not (line and expected and _fits(expected, line, values)):
                return (f"{section.path}, line {number}: {line or 'nothing'} instead of "
                        f"{expected or 'nothing'}")
        return ""

    def _lines_of(self, section):
        if "*" in section.path:
            return self._names_of(section.path)
        content, size = self.read(section.path), section.record_size
        if not size:
            return [_shown(line, False) for line in re.findall(r"[^\n]*\n|[^\n]+", content)]
        records = [content[at:at + size] for at in range(0, len(content), size)]
        lines = [_shown(record, True) for record in records]
        if records and len(records[-1]) < size:
            lines[-1] += f" ({len(records[-1])} bytes only)"
        return lines

    def _names_of(self, pattern):
        """Of files in whichever case, but for those that begin with a dot."""
        folder, _, name = (self._root + pattern).rpartition("/")
        fits = re.compile(fnmatch.translate(name), re.IGNORECASE).match
        try:
            return sorted(entry.name for entry in os.scandir(folder)
                          if fits(entry.name) and entry.is_file() and entry.name[0] != ".")
        except OSError:
            return []


def sections_of(text):
    """Of a state."""
    sections = []
    for line in text.split("\n"):
        head = re.fullmatch(r"\[(\S+)( new)?(?: records (\d+))?\]", line)
        if head:
            sections.append(Section(head[1], int(head[3] or 0), bool(head[2])))
        elif line and not line.startswith("#") and sections:
            sections[-1].lines.append(line)
    return sections


def _shown(text, record):
    """Zero bytes at the end of what was cut off belong to it: they fill it up."""
    return re.sub(r"(?:\\x00)+",
                  lambda run: r"\0" if record else rf"\0*{len(run[0]) // 4}", printable(text))


def _date(year):
    """The pattern of one, as in "2015-01-01 00:00:07" or as `date` prints it."""
    clock = r"\d\d:\d\d:\d\d"
    return rf"(?:{year}-\d\d-\d\d {clock}|(?=[^\\\d][^\\]*{clock})[^\\]*\b{year}\b[^\\]*)"


def _fits(expected, line, values):
    """Whether a line is as expected; names that it is the first to use are added to `values`."""
    patterns = {"any": ".*", "old": _date(2015), "now": _date(datetime.date.today().year)}
    parts = re.split(r"\$\{(\w+)\}", expected, flags=re.ASCII)
    pattern, fresh = re.escape(parts[0]), []
    for name, text in zip(parts[1::2], parts[2::2]):
        if name in values:
            pattern += re.escape(values[name])
        elif name in patterns:
            pattern += patterns[name]
        elif name in fresh:
            pattern += rf"(?:\{fresh.index(name) + 1})"
        else:
            pattern += r"([-\w]+)"
            fresh.append(name)
        pattern += re.escape(text)
    match = re.fullmatch(pattern, line, re.ASCII)
    if match:
        values.update(zip(fresh, match.groups()))
    return bool(match)


def _results_of(steps, level):
    """ "1" or "F" by the number of the item; those left out may be either."""
    results = {}
    for step in steps:
        reply = wire.decode(unprintable(step["reply"]))
        failed = is_failure(reply, step["code"], level)
        # A failure of several items may be any one's; a voltage has a limit of its own.
        unknown = (reply.kind in (wire.NONE, wire.BATTERY)
                   or failed and len(step["items"]) > 1)
        for item in step["items"]:
            results.pop(item, None)
            if not unknown:
                results[item] = "F" if failed else "1"
    return results
