"""bench produce: a panel from the first boot to release."""
import pathlib
import sys

from commands.reporting import add_report_options
from common import interrupt
from common.commandline import CommandLine, file_name
from common.failure import Failure, Interrupted
from common.files import read_json
from common.panel import ARCHIVED_LOG, STATION_FILE, Panel
from common.terminal import say, say_verdict
from common.waiting import wait_for
from station.line import Line
from station.plan import load_plan, values_of
from station.report import Report, begin_report, now, record_of, write_page, write_report
from station.runner import Runner
from station.virtualstand import BOARD, VirtualStand, identity_of
from store.handin import store_of, store_runs

STARTED = 60  # seconds
OVERHEAD = 120  # ms an item, the limit


class Production:
    """One panel from factory-new on, level after level as its own level file says, until it is
    released. Its `row` of production.json has a title, the plans, one for each level that it gets
    to, and the values that the station gives it."""

    def __init__(self, panel, row, args):
        self._panel, self._args = panel, args
        panel.do("new")
        self._values = identity_of(panel) | values_of(row.get("values", {}))
        self._stand = VirtualStand(panel)
        self._stand.files.values = dict(self._values)
        panel.do(f"glass {_number(self._values.get('station', ''))}")
        for fault in args.fault:
            panel.do(f"fault {fault}")
        self._levels = {}
        for path in row.get("plans", []):
            plan = load_plan(pathlib.Path(args.plans, str(path)), self._values)
            if plan.problems:
                raise Failure("\n".join(plan.problems))
            plan.file = str(path)
            self._levels[plan.level] = plan

    def run(self, report):
        files, before = self._stand.files, ""
        while not files.released() and files.level() != before:
            before = files.level()
            report.begin(before)
            self._run_level(before, report)
            wrong = self._after_release() if files.released() else ""
            if wrong:
                report.fault(wrong)
            elif not files.released() and files.level() == before:
                report.fault("the panel stays at this level")
            for fault in report.levels[-1]["faults"]:
                say(f"FAIL {fault}", bad=True)
            overhead = report.levels[-1]["medianOverheadMs"]
            if overhead > 0:
                say(f"     {overhead:.1f} ms an item over the prescribed waits in the median "
                    f"(limit {OVERHEAD})")

    def _run_level(self, level, report):
        plan, stand = self._levels.get(level), self._stand
        if not plan:
            return report.fault(f"nobody has a plan for level {level}")
        fault = stand.power_on()
        if fault:
            return report.fault(fault)
        sound = self._panel.do("faults") == "ok"  # none
        stand.state_folder = pathlib.Path(self._args.plans, plan.file).parent if sound else ""
        number = _number(self._values.get("station", ""))
        if level == "BI":
            number = _number(stand.files.read(STATION_FILE), 16)
        with Line(stand.port(level), level) as line:
            Runner(line, stand, self._values, number, strict=True,
                   verbose=self._args.verbose).run(plan, report)
        result = report.levels[-1]
        result["log"] = stand.files.read(ARCHIVED_LOG).replace("\0", "")
        for wrong in stand.files.item_faults(level, [] if sound else result["steps"], 5):
            report.fault(wrong)
        self._panel.do("off")

    def _after_release(self):
        """A whole machine then starts the product application and not the agent. Empty, or what is
        wrong."""
        if not BOARD:
            return ""

        def runs(program):
            return self._panel.do(f"run pidof {program}") != '""'
        self._panel.do("on")
        started = wait_for(lambda: runs("window"), STARTED)
        agent = runs("ict-agent")
        self._panel.do("off")
        return "" if started and not agent \
            else "the released panel does not start the product application alone"


def _number(text, base=10):
    """0 for what is none."""
    try:
        return int(text.partition("\0")[0], base)
    except ValueError:
        return 0


def _produce(args, row, number, report):
    """One panel. Its report is written whatever happens; false if the bench could not work, which
    is said."""
    folder = begin_report(report, args.report)
    place = f"{args.folder}-{number + 1}" if args.folder and number else args.folder
    worked = True
    try:
        say(report.subject)
        with Panel(folder=place) as panel, interrupt.allowed():
            Production(panel, row, args).run(report)
    except (Failure, OSError, KeyboardInterrupt) as end:
        worked = False
        text = str(end) or str(Interrupted())
        if not any(fault.endswith(text) for fault in report.faults()[-1:]):
            if not report.levels or not interrupt.interrupted():
                report.begin("the bench")
            report.fault(text)
        print(f"bench produce: {text}", file=sys.stderr)
    report.ended = now()
    for fault in report.faults():
        say(fault, bad=True)
    place = write_report(report, args.report, folder)
    say(f"{'PASSED' if report.passed else 'FAILED'}. Report: {place}/report.html (and report.json, "
        "junit.xml)", not report.passed)
    store_runs({str(place): record_of(report)}, store_of(args), args.report)
    return worked


def _arguments(words):
    parser = CommandLine(
        "produce",
        "Makes a factory-new virtual panel and takes it through ICT, T1, BI and T2, one power\n"
        "cycle after the other, until it is released; a second one by the short way from T1; a\n"
        "third by forced changes. production.json among the plans says which. Exit status 0\n"
        "only if every reply, every screen and every file on the panels is what it must be.")
    add_report_options(parser, "out/produce")
    add = parser.add_argument
    add("--tour", action="store_true",
        help="Only the last panel: identity, presence, failing end check and forced change of each "
        "level.")
    add("--single", action="store_true", help="Only the first panel.")
    add("--fault", metavar="NAME[:VALUE]", action="append", default=[],
        help="Begin with this fault; may be given several times.")
    add("--folder", metavar="FOLDER", type=file_name,
        help="Keep the first panel's files in this folder, a second one's in FOLDER-2 and so on; "
        "they are emptied first (default: temporary ones).")
    return parser.parse_args(words)


def _is_row(row):
    return isinstance(row, dict) and all(
        isinstance(row.get(key, form()), form)
        for key, form in (("title", str), ("plans", list), ("values", dict)))


def _rows(args):
    """The panels that are to be produced, with their numbers."""
    file = f"{args.plans}/production.json"
    rows = read_json(file).get("panels")
    if not isinstance(rows, list) or not rows or not all(_is_row(row) for row in rows):
        raise Failure(f'{file}: "panels" must be a list with a row for each panel')
    first = len(rows) - 1 if args.tour else 0
    return list(enumerate(rows))[first:first + 1 if args.single else None]


def main(words):
    args = _arguments(words)
    interrupt.hold()
    reports, worked, passed = [], True, True
    for number, row in _rows(args):
        given = values_of(row.get("values", {}))
        reports.append(Report(row.get("title", ""), given, args.operator, args.line))
        worked = _produce(args, row, number, reports[-1])
        passed = passed and reports[-1].passed
        if not worked:
            break
    paged = write_page(reports, args.report)
    say_verdict(passed and not interrupt.interrupted())
    if interrupt.interrupted():
        return 1
    return 2 if not (paged and worked) else int(not passed)
