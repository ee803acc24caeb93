"""What was done to one unit, and the reports of it."""
import base64
import contextlib
import dataclasses
import datetime
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import tempfile

from common.bytetext import unprintable
from common.failure import Failure
from common.files import PAGES, replace_file
from common.terminal import say
from station import wire

ASKED_BY = {"AB00": "model", "AA00": "crc", "FF00": "version", "FF01": "toolVersion",
            "0701": "machineId", "0702": "semiId"}


def now():
    """To the second, with the zone's distance."""
    return datetime.datetime.now().astimezone().replace(microsecond=0)


@dataclasses.dataclass
class Report:
    subject: str = ""  # where it was: its port, its station number
    given: dict = dataclasses.field(default_factory=dict)  # what the station was told of the unit
    operator: str = ""  # who tests
    line: str = ""  # on which production line
    begun: datetime.datetime = dataclasses.field(default_factory=now)
    ended: datetime.datetime = None  # None: not yet
    levels: list = dataclasses.field(default_factory=list)  # as in the record, but for "passed"
    screens: dict = dataclasses.field(default_factory=dict)  # PNG by the names of their files

    def begin(self, level):
        """A new level, on which the runner and the others here go on."""
        self.levels.append({"level": level, "plan": "", "planHash": "", "items": [], "steps": [],
                            "medianOverheadMs": 0, "faults": [], "screens": [], "log": ""})

    def fault(self, text):
        """Of the panel as a whole, or of the place where it stands."""
        self.levels[-1]["faults"].append(text)

    def take(self, screens):
        """By their own names."""
        level = self.levels[-1]
        for name in sorted(screens):
            file = f"{level['level'].lower()}-{name}.png"
            level["screens"].append(file)
            self.screens[file] = screens[name]

    @property
    def passed(self):
        return bool(self.levels) and not self.faults()

    def faults(self):
        """One line a fault, with level and step; none when passed."""
        return [fault for level in self.levels for fault in _faults_of(level)]

    def unit(self):
        """Who the unit is: machineId and semiId as given, else as it answered; model, version, crc
        and toolVersion (of its fixture) as it answered, else as given. Unknown ones are left
        out."""
        answered = {}
        for step in (step for level in self.levels for step in level["steps"]):
            reply = wire.decode(unprintable(step["reply"]))
            value = reply.payload[4:] if reply.kind == wire.IDENTITY else reply.payload
            if reply.kind in (wire.TEXT, wire.IDENTITY):
                answered[ASKED_BY.get(step["code"])] = value.replace("ToolVer=", "").strip()
        unit = {}
        for name in ASKED_BY.values():
            first, second = (self.given, answered) if name.endswith("Id") else \
                (answered, self.given)
            value = first.get(name, second.get(name))
            if value:
                unit[name] = value
        return unit


def _faults_of(level):
    name = level["level"]
    steps = [f"{name}, {step['name']}: {fault}"
             for step in level["steps"] for fault in step["faults"]]
    return steps + [f"{name}: {fault}" for fault in level["faults"]]


def _moment(time):
    return time.isoformat().replace("+00:00", "Z") if time else ""


def _zone():
    place = os.path.realpath("/etc/localtime").partition("/zoneinfo/")[2]
    return os.environ.get("TZ", "").lstrip(":") or place or "UTC"


def record_of(report):
    """The whole run as one document: all that the reports show, and nothing else. docs/bench.md
    describes it."""
    verdict = "not ended" if not report.ended else "passed" if report.passed else "failed"
    levels = [level | {"passed": not _faults_of(level)} for level in report.levels]
    return {"format": 1, "unit": report.unit(), "subject": report.subject,
            "operator": report.operator, "line": report.line, "host": socket.gethostname(),
            "bench": os.environ.get("BENCH_VERSION", ""), "begun": _moment(report.begun),
            "ended": _moment(report.ended), "zone": _zone(), "verdict": verdict,
            "passed": verdict == "passed", "faults": report.faults(), "levels": levels}


def page_of(name, data):
    """A page of bench/report with its data in it: between script tags nothing is escaped but
    "<"."""
    text = json.dumps(data, separators=(",", ":"), sort_keys=True, ensure_ascii=False)
    page, common = ((PAGES / file).read_text("utf-8") for file in (name, "common.js"))
    # The data last, which may hold anything.
    return page.replace("@COMMON@", common).replace("@DATA@", text.replace("<", "\\u003c"))


def _page_with(reports):
    """The page with the records, their screens in them."""
    return page_of("page.html", [
        record_of(report) | {"images": {file: base64.b64encode(png).decode()
                                        for file, png in report.screens.items()}}
        for report in reports])


def _junit(record):
    try:
        jq = subprocess.run(["jq", "--raw-output", "--from-file", str(PAGES / "junit.jq")],
                            input=record, capture_output=True, check=False,
                            start_new_session=True)  # Ctrl-C ends the test, not its report
    except OSError as error:
        raise Failure(f"junit.xml: jq: {error.strerror}") from None
    if jq.returncode:
        raise Failure("junit.xml: jq: " + jq.stderr.decode(errors="replace"))
    return jq.stdout


def _files_of(report):
    """Contents by name. Half a surrogate pair, which a plan may have, becomes "?"."""
    record = json.dumps(record_of(report), indent=4, sort_keys=True, ensure_ascii=False)
    record = record.encode(errors="replace") + b"\n"
    return report.screens | {"report.html": _page_with([report]).encode(errors="replace"),
                             "report.json": record, "junit.xml": _junit(record)}


def _write(files, folder):
    try:
        folder.mkdir(parents=True, exist_ok=True)
    except OSError:
        raise Failure(f"{folder} cannot be created") from None
    for name, content in files.items():
        replace_file(folder / name, content)


def _unit_folder(report, base):
    """BASE/UNIT. An ID may hold anything: what it has of a path is taken away."""
    unit = report.unit()
    name = unit.get("machineId", unit.get("semiId", report.subject))
    name = re.sub(r"^[.-]+", "", re.sub(r"[^\w.-]+", "-", name, flags=re.ASCII))
    return pathlib.Path(base, name[:80] or "unknown")


def begin_report(report, base):
    """Makes a new folder for a report, BASE/UNIT/TIMESTAMP, UNIT being the machine ID, else the
    semi ID, else the subject, and writes the report of a run that has not ended into it. Raises
    Failure when that cannot be done."""
    unit = _unit_folder(report, base)
    wanted = folder = unit / report.begun.strftime("%Y%m%d-%H%M%S")
    files, more = _files_of(report), 1
    while True:
        try:
            folder.mkdir(parents=True)
            break
        except FileExistsError:
            if not folder.exists():  # a file is where a folder should be
                break
            more += 1
            folder = wanted.with_name(f"{wanted.name}-{more}")
        except OSError:
            break  # which writing will say
    try:
        _write(files, folder)
    except Failure as failure:
        raise Failure(f"{failure}; choose another folder with --report") from None
    return folder


def _known_place(report, base, folder):
    """Where the report goes now that the unit's ID may have come to be known."""
    unit = _unit_folder(report, base)
    known = unit / folder.name
    if folder.parent == unit or known.exists():
        return folder
    try:
        unit.mkdir(parents=True, exist_ok=True)
        folder.rename(known)
    except OSError:
        return folder
    with contextlib.suppress(OSError):  # other runs are in it
        folder.parent.rmdir()
    return known


def write_report(report, base, folder):
    """Writes report.html (self-contained, screens included: report/page.html with the record in
    it), report.json (the record), junit.xml and every screen as PNG into `folder` from
    begin_report(). Returns where they are: there, or below `base` where the unit's ID has come to
    be known, or when it cannot be written, which is said, in a new folder for temporary files.
    Raises Failure when that fails too."""
    place, files = _known_place(report, base, pathlib.Path(folder)), _files_of(report)
    try:
        _write(files, place)
        return place
    except Failure as failure:
        problem = failure
    last = None
    try:
        last = pathlib.Path(tempfile.mkdtemp(prefix="bench-report-"))
        _write(files, last)
    except (Failure, OSError) as worse:
        shutil.rmtree(last or "", ignore_errors=True)
        raise Failure(f"{problem}; {worse}") from None
    say(f"{problem}; the report is in {last} instead", bad=True)
    return last


def write_page(reports, base):
    """Writes one page with all the reports, its first part an index, over that of an earlier run,
    and says where. False when that cannot be done."""
    file = f"{base}/report.html"
    try:
        replace_file(file, _page_with(reports).encode(errors="replace"))
    except Failure as failure:
        say(str(failure), bad=True)
        return False
    say(f"All in one page: {file}")
    return True
