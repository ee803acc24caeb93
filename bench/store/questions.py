"""What is asked of a store. A test is one level of a run. Days are those of the line, as
"2026-11-21"; `since` and `until` are both inclusive."""
import csv

from common.failure import Failure
from store.rows import text_of

EVER = {"since": "0000", "until": "9999"}


def latest_tests(store, period, count):
    """The latest tests, oldest first."""
    return store.rows("latest", **period, count=count)[::-1]


def history_of(store, unit):
    """All of the units whose machine or semi-finished ID is like `unit` ("%": anything), those
    included where only the other of the unit's two IDs was known."""
    return store.rows("history", id=unit.lower())


def findings(store, test):
    """What was found in such a test, a line each: failed steps, then measured values."""
    where = {"run": test["run"], "nr": test["nr"]}
    lines = [line for line in text_of(test["faults"]).split("\n") if line]
    for step in store.rows("failed", **where):
        lines.append(step["name"] + ": " + text_of(step["faults"]).replace("\n", "; "))
    for value in store.rows("measured", **where):
        limits = f" ({text_of(value['lower_limit'])} to {text_of(value['upper_limit'])})"
        lines.append(f"{value['name']} {text_of(value['value'])} {text_of(value['measure'])}"
                     + (limits if value["lower_limit"] is not None else ""))
    return lines


def write_csv(store, table, period, unit, out):
    """Writes "tests", "steps" or "values" as CSV with a line of titles, of units with an ID like
    `unit`, to a file. Raises Failure when there is no such table."""
    if table not in ("tests", "steps", "values"):
        raise Failure(f"--csv takes tests, steps or values, not {table}")
    writer = csv.writer(out)
    for row in store.ask(f"csv_{table}", **period, id=unit.lower()):
        writer.writerow(map(_csv_cell, row))


def _csv_cell(value):
    text = text_of(value)
    if isinstance(value, str) and text.startswith(("-", "=", "+", "@", "\t", "\r")):
        text = "'" + text  # what a panel sent is no formula of anyone's spreadsheet
    return text


def yield_of(store, period):
    """What bench/report/yield.html shows, which describes it."""
    answers = dict(period)
    for question in ("units", "first", "failures", "whole", "values", "times", "retests",
                     "longest"):
        _titles, *answers[question] = store.ask(f"yield_{question}", **period)
    return answers
