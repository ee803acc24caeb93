#!/usr/bin/env python3
"""Makes records of invented units from a real one, to try `bench units --hand-in FOLDER` on: one
run a unit and level, 3 lines, 20 working days, about 4 % of the tests failing in a few items that
go wrong more often than others, failed ones tested again up to three times."""
import argparse
import copy
import datetime
import json
import os
import random

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("record", type=argparse.FileType(encoding="utf-8"), metavar="REPORT.json",
                    help="what `bench produce` reported of a panel that passed")
parser.add_argument("count", type=int, metavar="COUNT", help="how many units")
parser.add_argument("folder", metavar="FOLDER", help="where to; made if it is not there")
args = parser.parse_args()
record, count, folder = json.load(args.record), args.count, args.folder
random.seed(1)
os.makedirs(folder, exist_ok=True)


def vary(level, fails):
    for step in level["steps"]:
        step["ms"] = round(max(step["prescribedMs"], 0) + random.gauss(85, 12), 1)
        for value in step["values"]:
            value["value"] += round(random.gauss(0, 6)) * (10 if value["unit"] == "mV" else 1)
    items = [step for step in level["steps"] if step["items"]]
    if fails and items:
        step = items[min(int(random.expovariate(0.35)), len(items) - 1)]
        step.update(passed=False, faults=[f"{step['name']}: failed ({step['code'][:2]}F0)"])
        level["passed"] = False


def run(number, level, begun, fails):
    made = {key: value for key, value in record.items() if key != "levels"}
    made["levels"] = [copy.deepcopy(level)]
    vary(made["levels"][0], fails)
    made["unit"] = dict(record["unit"], machineId=f"2026{number:08d}", semiId=f"S{number:08d}")
    made["host"] = f"line-{number % 3 + 1}"
    made["operator"] = random.choice(["anna", "ben", "chen"])
    made["begun"] = begun.isoformat() + "+00:00"
    made["ended"] = (begun + datetime.timedelta(seconds=60)).isoformat() + "+00:00"
    made["passed"] = made["levels"][0]["passed"]
    made["verdict"] = "passed" if made["passed"] else "failed"
    name = f"{number:08d}-{level['level']}-{begun:%d%H%M%S}.json"
    with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
        json.dump(made, file)
    return made["passed"]


for number in range(count):
    days = number * 20 // count
    day = datetime.datetime(2026, 10, 5) + datetime.timedelta(days=days // 5 * 7 + days % 5)
    begun = day + datetime.timedelta(hours=6, seconds=number % 500 * 100)
    for level in record["levels"]:
        for attempt in range(3):
            begun += datetime.timedelta(minutes=4)
            if run(number, level, begun, random.random() < (0.04, 0.3, 0.5)[attempt]):
                break
