"""bench station: panels at serial ports, with the plan of a level."""
import dataclasses
import pathlib
import threading

from commands.reporting import add_report_options
from common import interrupt
from common.commandline import CommandLine, file_name, numbers
from common.failure import Failure, Interrupted, text_of_defect
from common.files import read_json
from common.terminal import say, say_verdict
from station.line import Line
from station.plan import Plan, load_plan
from station.report import Report, begin_report, now, record_of, write_page, write_report
from station.requests import LEVELS
from station.runner import Runner
from station.stand import TerminalStand
from store.handin import store_of, store_runs

# What a plan of the bench's own may ask for.
KNOWN_VALUES = {"model", "crc", "version", "semiId", "machineId", "station"}


@dataclasses.dataclass
class Job:
    """One panel under test; several on a burn-in bus share the port."""
    port: str
    number: int  # of the station
    label: str = ""  # see Runner
    values: dict = dataclasses.field(default_factory=dict)
    plan: Plan = None
    report: Report = None
    folder: pathlib.Path = None  # of the report
    tested: bool = False  # else there is nothing to say about the panel

    @property
    def name(self):
        return f"{self.port} station {self.number}" if self.number else self.port


class Station:
    """Tests the panels of several ports side by side."""

    def __init__(self, jobs, args):
        self._jobs, self._args = jobs, args
        self._stop = threading.Event()
        self.unusable = False  # one of the ports, or the bench

    def run(self):
        ports = {}
        for job in self._jobs:
            ports.setdefault(job.port, []).append(job)
        threads = [threading.Thread(target=self._work, args=(jobs,), daemon=True)
                   for jobs in ports.values()]
        for thread in threads:
            thread.start()
        for thread in threads:
            while thread.is_alive():
                thread.join(0.1)  # which an exception would make forget that the thread lives
                if interrupt.interrupted():
                    self._stop.set()

    def _work(self, jobs):
        """All panels of one port, one after the other; those that it does not get to, told to stop
        or the port having failed, have that as their fault."""
        for job in jobs:
            job.report.begin(job.plan.level)
        try:
            with Line(jobs[0].port, jobs[0].plan.level, self._stop) as line:
                over = ""  # why no more panels are tested
                for job in jobs:
                    over = self._test(job, line, over)
        except Exception as failure:  # whatever it is: what nobody has tested has not passed
            self.unusable = True
            text = str(failure) if isinstance(failure, Failure) else text_of_defect(failure)
            say(text, bad=True)
            for job in jobs:
                job.report.fault(text)

    def _test(self, job, line, over):
        if over:
            job.report.fault(over)
            return over
        stand = TerminalStand(job.name, job.plan.actions, self._args.yes, self._stop)
        runner = Runner(line, stand, job.values, job.number, job.label,
                        verbose=self._args.verbose)
        try:
            runner.run(job.plan, job.report)
        except Failure as wrong:
            say(f"{job.name}: {wrong}", bad=True)
        except Exception as wrong:
            self.unusable = True
            say(f"{job.name}: {text_of_defect(wrong)}", bad=True)
        job.tested = runner.asked
        return str(Interrupted()) if self._stop.is_set() else line.failure

    def write_reports(self):
        """False if one of them could not be written; the verdicts are said all the same."""
        base, written, records = self._args.report, True, {}
        for job in self._jobs:
            job.report.ended, file = now(), "no report"
            try:
                job.folder = write_report(job.report, base, job.folder)
                file = f"{job.folder}/report.html"
            except Failure as failure:
                written = False
                say(str(failure), bad=True)
            if job.tested:
                records[str(job.folder)] = record_of(job.report)
            passed = job.report.passed
            say(f"{'PASSED' if passed else 'FAILED'}  {job.name}  {file}", not passed)
        if len(self._jobs) > 1:
            written = write_page([job.report for job in self._jobs], base) and written
        if records:
            store_runs(records, store_of(self._args), base)
        return written


def _panels(args):
    """The port and the station number of each panel. At burn-in a port is a bus, with a panel of
    each number; at the other levels it is one panel, and the number what that is given."""
    level = args.level or str(read_json(args.plan).get("level", ""))
    ports, stations = args.port or ["no port"], args.station
    if len(set(ports)) < len(ports):
        raise Failure("--port: each port once")
    if level.upper() == "BI":
        return [(port, number) for port in ports for number in stations]
    if len(stations) not in (1, len(ports)):
        raise Failure("--station: one number, or one for each --port, is needed; only at BI do "
                      "several panels share a port")
    return list(zip(ports, stations if len(stations) > 1 else stations * len(ports)))


def _set_values(text, jobs):
    """ "name=value" or "name=value,value,...": one for each panel."""
    name, given, values = text.partition("=")
    values = values.split(",")
    if not given or len(values) not in (1, len(jobs)):
        raise Failure(f"--set {text}: one value, or one for each of the {len(jobs)} panels, is "
                      "needed")
    for number, job in enumerate(jobs):
        job.values[name] = values[number if len(values) > 1 else 0]


def _load(args, job):
    """What is wrong with its plan."""
    file = args.plan or f"{args.plans}/{args.level.lower()}.json"
    job.plan = load_plan(file, job.values)
    job.report = Report(job.name, dict(job.values), args.operator, args.line)
    problems = list(job.plan.problems)
    if args.level and job.plan.level and job.plan.level != args.level.upper():
        problems.append(f"{file} is a plan of level {job.plan.level}, not of {args.level.upper()}")
    # A name that neither this plan nor any of the bench's own uses is a slip.
    known = KNOWN_VALUES | job.plan.uses
    problems += [f"--set {name}: no step uses it; known are {', '.join(sorted(known))}"
                 for name in sorted(job.values) if name not in known]
    return problems


def _jobs(args):
    panels = _panels(args)
    jobs = [Job(port, number, values={"station": str(number)}) for port, number in panels]
    for job in jobs:
        job.label = job.name + " " if len(jobs) > 1 else ""
    for text in args.set:
        _set_values(text, jobs)
    problems = [problem for job in jobs for problem in _load(args, job)]
    if problems:
        raise Failure("\n".join(dict.fromkeys(problems)))
    return jobs


def _arguments(words):
    parser = CommandLine(
        "station",
        "Tests panels at their PC link with the plan of a level, several ports at once, and at BI\n"
        "several panels of one bus by station number. What a person must do is asked on the\n"
        "terminal. Exit status 0 only if every panel passed.\n"
        "Example: bench station --port /dev/ttyUSB0 --level ict --set model=KLV-100 \\\n"
        "             --set crc=D8B172D0 --set version=A.0123.120 --set semiId=SEMI25110001")
    add_report_options(parser, "out/station")
    add = parser.add_argument
    add("--port", metavar="PATH", action="append", default=[],
        help="Serial device or pty; may be given several times.")
    add("--level", metavar="LEVEL", default="", help="Test with its plan: ict, t1, bi or t2.")
    add("--station", metavar="NUMBERS", type=numbers(0, 255), default=[0],
        help="Station number, decimal (default 0); with commas at BI all on the bus of each port, "
        "at other levels one for each port in their order.")
    add("--set", metavar="NAME=VALUE", action="append", default=[],
        help="What a plan's ${NAME} stands for; with commas, one VALUE for each panel.")
    add("--plan", metavar="FILE", type=file_name,
        help="Test with this plan, for example a record of `bench panel --record`.")
    add("--check", action="store_true", help="Only check the plan.")
    add("--yes", action="store_true", help="Take everything asked of a person as done.")
    args = parser.parse_args(words)
    known = args.level.upper() in LEVELS if args.level else args.plan
    if not known or not (args.port or args.check):
        raise Failure("which port, and which level (ict, t1, bi, t2)? Example: bench station "
                      "--port /dev/ttyUSB0 --level t1")
    return args


def main(words):
    args = _arguments(words)
    jobs = _jobs(args)
    if args.check:
        say("The plan may run")
        return 0
    interrupt.hold()
    for job in jobs:
        job.folder = begin_report(job.report, args.report)
    station = Station(jobs, args)
    station.run()
    reported = station.write_reports()
    passed = not interrupt.interrupted() and all(job.report.passed for job in jobs)
    say_verdict(passed)
    return 2 if station.unusable or not reported else int(not passed)
