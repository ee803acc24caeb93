"""bench units: what is known of the units that were tested."""
import datetime
import glob
import os
import sys

from common.commandline import CommandLine, file_name, number
from common.failure import Failure
from common.terminal import say
from station.report import page_of
from store import questions
from store.handin import add_store_option, hand_in, hand_in_waiting, store_of
from store.rows import text_of
from store.store import Store, is_server, name_of


def _arguments(words):
    parser = CommandLine(
        "units",
        "What is known of the units that `bench station` and `bench produce` have tested: without\n"
        "more the latest tests, with an ID, or a part of one, a unit's whole history.")
    add = parser.add_argument
    add("--report", metavar="FOLDER", type=file_name, default="out/station",
        help="Folder of the reports (default: %(default)s).")
    add_store_option(parser)
    add("--since", metavar="DAY", help="Only tests of this day (like 2026-11-21) and later ones.")
    add("--until", metavar="DAY", help="Only tests of this day and earlier ones.")
    add("--count", metavar="NUMBER", type=number(1, 1000000), default=40,
        help="How many tests to list (default 40).")
    add("--csv", metavar="TABLE", help="Print tests, steps or values (what was measured) as CSV.")
    add("--yield", metavar="FILE", type=file_name, dest="page",
        help="Write a page with yield, failing items, measured values and retests.")
    add("--hand-in", action="store_true",
        help="Put into the store what waits for it in the folder of the reports, or the named "
        "report.json files, or all in the named folders.")
    add("named", metavar="ID | FILE", nargs="*",
        help="Machine or semi-finished ID; with --hand-in a file or folder.")
    args = parser.parse_args(words)
    if len(args.named) > 1 and not args.hand_in:
        parser.error("one ID at a time")
    return args


def _period(args):
    period = dict(questions.EVER)
    for name in period:
        day = getattr(args, name)
        if day is None:
            continue
        if not _is_day(day):
            raise Failure(f"--{name} takes a day like 2026-11-21, not {day}")
        period[name] = day
    return period


def _is_day(text):
    try:
        return datetime.date.fromisoformat(text).isoformat() == text
    except ValueError:
        return False


def _stores_beside(base):
    """Stores that might be meant: in the folders beside that of the reports."""
    around = os.path.dirname(base)
    stores = sorted(glob.glob("*/units.sqlite", root_dir=around or "."))
    return " or ".join("--report " + os.path.join(around, os.path.dirname(store))
                       for store in stores) or "--report or --store"


def _list(tests):
    for test in tests:
        clock, unit, level, line, operator = (
            text_of(test[column]) for column in ("clock", "unit", "level", "line", "operator"))
        verdict = "passed" if test["passed"] else "FAILED"
        say(f"{clock[:16].replace('T', ' '):16}  {verdict}  {unit:20}  {level:3}  {line:12}  "
            f"{operator}", bad=not test["passed"])


def _find(store, unit):
    """A unit's whole history, or which units might be meant."""
    tests = questions.history_of(store, unit)
    if not tests:
        tests = questions.history_of(store, f"%{unit}%")
        units = {test["unit"] for test in tests}
        if len(units) != 1:
            _list(tests)
            say(f"{len(units)} units have it in their ID" if units else
                f"no unit has {unit} in its ID", bad=True)
            return 1
    latest = {column: text_of(value) for column, value in tests[-1].items()}
    say(f"Unit {latest['unit']}, semi-finished {latest['semi']}, {latest['model']}, version "
        f"{latest['version']}")
    for test in tests:
        _list([test])
        for finding in questions.findings(store, test):
            say("    " + finding)
        if test["report"]:
            say(f"    {test['report']}/report.html")
    return 0


def _write_yield(store, period, file, name):
    made = datetime.datetime.now().strftime("%Y-%m-%d %H:%M")
    page = page_of("yield.html",
                   questions.yield_of(store, period) | {"store": name, "made": made})
    try:
        with open(file, "wb") as out:
            out.write(page.encode())
    except OSError as error:
        raise Failure(f"{file} cannot be written: {error.strerror}") from None
    say("Written: " + file)


def _print_csv(store, table, period, unit):
    try:
        with open(sys.stdout.fileno(), "w", encoding="utf-8", newline="", closefd=False) as out:
            questions.write_csv(store, table, period, unit, out)
    except BrokenPipeError:
        raise
    except OSError as error:
        raise Failure(f"the table cannot be written: {error.strerror}") from None


def main(words):
    args = _arguments(words)
    where, period = store_of(args), _period(args)
    if args.hand_in:
        if not args.named and not os.path.isdir(args.report):
            raise Failure(f"{args.report}: no such folder of reports (--report)")
        added = hand_in(where, args.named) if args.named else hand_in_waiting(where, args.report)
        say(f"{added} runs were new to the store")
        return 0
    if not is_server(where) and not os.path.exists(where):
        raise Failure(f"there is no store {where}: choose one by {_stores_beside(args.report)}")
    with Store(where) as store:
        if args.page is not None:
            _write_yield(store, period, args.page, name_of(where))
        elif args.csv is not None:
            _print_csv(store, args.csv, period, args.named[0] if args.named else "%")
        elif args.named:
            return _find(store, args.named[0])
        else:
            _list(questions.latest_tests(store, period, args.count))
    return 0
