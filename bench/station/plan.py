"""Plans: what is asked of a panel, step by step."""
import dataclasses
import functools
import hashlib
import json
import pathlib
import re
import warnings

from common.failure import Failure
from common.files import PLANS, read_json
from station.requests import LEVELS, command_of, find_command, request_of
from station.stand import action_fault


PLACEHOLDER = re.compile(r"\$\{(\w+)\}", re.ASCII)


@dataclasses.dataclass
class Plan:
    """`steps`: one exchange each, with what must be done around it: dicts with the keys that
    docs/plans.md describes, those of keys.json all there that have a value of their own, and
    "items" (numbers) and "itemNames" as lists. `problems`: "file, step: what is wrong", none for a
    plan that may run."""
    file: str  # base name
    hash: str = ""  # SHA-256 of its text, as hex digits
    level: str = ""
    items: list = dataclasses.field(default_factory=list)  # item lines without their ": 0"
    actions: list = dataclasses.field(default_factory=list)  # rows of actions.json
    steps: list = dataclasses.field(default_factory=list)
    uses: set = dataclasses.field(default_factory=set)  # names of the values it needs
    problems: list = dataclasses.field(default_factory=list)


def _table(folder, name):
    """What it has of its own, else the bench's."""
    own = pathlib.Path(folder, name)
    return read_json(own if own.exists() else PLANS / name)


def level_items(level, folder=PLANS):
    """The item lines of a level without their ": 0"."""
    return [item for item in _list_of(_table(folder, "items.json").get(level))
            if isinstance(item, str)]


def actions_of(folder=PLANS):
    """What may be asked of a stand: rows of actions.json, but for those that have no sound form."""
    return [row for row in _list_of(_table(folder, "actions.json").get("actions"))
            if isinstance(row, dict) and _is_pattern(row.get("action"))]


def _is_pattern(text):
    """Whether it is a regular expression, and means the same to everybody: "[[:digit:]]" does
    not."""
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            return bool(re.compile(text))
    except (TypeError, re.error, OverflowError, RecursionError, FutureWarning):
        return False


def values_of(fields):
    """What a station is given, as texts: numbers may be written as such."""
    return {name: str(value) for name, value in fields.items()}


def expand(text, values, pattern=False):
    """`text` with every "${name}" replaced; escaped for a regular expression if `pattern`."""
    put = re.escape if pattern else str
    return PLACEHOLDER.sub(lambda name: put(values.get(name[1], "")), text)


@functools.cache
def _keys():
    """What a step may have; the forms of the values as regular expressions."""
    file = read_json(PLANS / "keys.json")
    for key in file["step"].values():
        form = expand(expand(key["form"], file["forms"]), file["forms"])
        key["form"] = re.compile(rf"\[(?:{form})\]")
    return file["step"]


def _list_of(value):
    return value if isinstance(value, list) else []


def _well_formed(row, problems):
    """The part of a row that has the forms of keys.json; what is wrong with the rest goes into
    `problems`."""
    good = {}
    for key, value in sorted(row.items()):
        if key not in _keys():
            problems.append(f'unknown key "{key}"; known are {", ".join(sorted(_keys()))}')
            continue
        compact = json.dumps([value], separators=(",", ":"), ensure_ascii=False)
        fits = _keys()[key]["form"].fullmatch(compact)
        if fits and (key != "battery" or value[0] <= value[1]):
            good[key] = value
        else:
            problems.append(f'"{key}" must be {_keys()[key]["must be"]}')
    return good


def _code_problem(step, values, level):
    code = step["code"]
    command = find_command(code)
    if step["raw"]:
        return ""
    if not command:
        return f'no panel knows the code "{code}"'
    if level not in command.levels and not step["silence"]:
        return f"the code {code} is not allowed at level {level}"
    try:
        request_of(code, expand(step["argument"], values))
    except Failure as wrong:
        return str(wrong)
    return ""


def _step_problems(step, values, plan):
    yield _code_problem(step, values, plan.level)
    for when in ("before", "during", "after"):
        for action in step[when]:
            yield action_fault(action, plan.actions)
    for item in step["items"]:
        if not 1 <= item <= len(plan.items):
            yield f"level {plan.level} has no item {item}"
    texts = [step.get(key, "") for key in ("text", "reply", "bytes", "argument")]
    if not _is_pattern(expand(texts[0], values, pattern=True)):
        yield "not a regular expression: " + texts[0]
    change = step["code"] == "KLV-" and not step["raw"]
    for name in PLACEHOLDER.findall("".join(texts) + "${model}" * change):
        plan.uses.add(name)
        if name not in values:
            yield f"nobody says what ${{{name}}} is (--set {name}=...)"


def step_of(row, items=()):
    """A step from a well-formed row of a plan."""
    step = {key: known["else"] for key, known in _keys().items() if "else" in known} | row
    command = command_of(step["raw"]) if step["raw"] else find_command(step["code"])
    if command:
        step["code"] = command.code
        step.setdefault("reply", command.passed)
    if step["silence"]:
        step["wait"] = step["timeout"]  # all of it is prescribed
    step["argument"] = str(step["argument"])
    item = row.get("item", [])
    step["items"] = item if isinstance(item, list) else [item]
    step["itemNames"] = [items[number - 1] if 1 <= number <= len(items) else ""
                         for number in step["items"]]
    return step


def _read_steps(rows, values, plan):
    for number, row in enumerate(rows, 1):
        problems = []
        step = step_of(_well_formed(row if isinstance(row, dict) else {}, problems), plan.items)
        plan.steps.append(step)
        name = step["name"]
        place = f"{plan.file}, step {number}" + (name and f' "{name}"')
        problems += _step_problems(step, values, plan)
        plan.problems += [f"{place}: {problem}" for problem in problems if problem]
    if not plan.steps:
        plan.problems.append(plan.file + ': "steps" holds none')


def load_plan(path, values):
    """Reads and checks a plan: keys unknown, mistyped or out of range, unknown codes, codes that
    the level does not allow, unknown actions, values not in `values`, items that no step covers.
    See Plan.problems."""
    path = pathlib.Path(path)
    plan = Plan(path.name)
    try:
        root = read_json(path)
        plan.hash = hashlib.sha256(path.read_bytes()).hexdigest()
        level = str(root.get("level")).upper()
        if level not in LEVELS:
            plan.problems.append(plan.file + ': "level" must be ICT, T1, BI or T2')
            return plan
        plan.level = level
        plan.items, plan.actions = level_items(level, path.parent), actions_of(path.parent)
        _read_steps(_list_of(root.get("steps")), values, plan)
        covered = {name for step in plan.steps for name in step["itemNames"]}
        plan.problems += [f'{plan.file}: no step covers item "{item}"' for item in plan.items
                          if item not in covered and root.get("partial") is not True]
    except Failure as failure:
        plan.problems.append(str(failure))
    return plan
