"""What of a record becomes rows of a store: dicts by the parameters of store.sql."""
import datetime
import hashlib
import json
import re

from common.files import plain_number

_ODD_NUMBER = re.compile(r"\d\.0\b|\de[-+]\d")  # one that JSON writes in more than one way


def key_of(record):
    """A run's key, the same wherever and as often as its record is handed in."""
    # The folder is where the report is on one machine; report.json itself lacks it.
    form = {"ensure_ascii": False, "sort_keys": True, "separators": (",", ":")}
    text = json.dumps({name: value for name, value in record.items() if name != "folder"}, **form)
    if _ODD_NUMBER.search(text):
        text = json.dumps(json.loads(text, parse_float=plain_number), **form)
    return hashlib.sha256(text.encode("utf-8", "backslashreplace")).hexdigest()[:32]


def text_of(value):
    """A value of a record or of a store as people read it: whole numbers have no fraction, what is
    unknown is empty."""
    if isinstance(value, str):
        return value
    if value is None or isinstance(value, (dict, list)):
        return ""
    if isinstance(value, bool):
        return str(value).lower()
    return str(int(value) if isinstance(value, float) and value.is_integer() else value)


def run_of(record, key):
    """The fields of a run."""
    clock = text_of(record.get("begun"))
    began, ended = _moment(clock), _moment(record.get("ended"))
    unit = record.get("unit")
    run = {**record, **(unit if isinstance(unit, dict) else {})}
    name = text_of(run.get("machineId")) or text_of(run.get("semiId")) or "unknown-" + key[:8]
    return run | {
        "run": key, "name": name, "line": text_of(run.get("line")) or text_of(run.get("host")),
        "began": began.strftime("%Y-%m-%dT%H:%M:%SZ") if began else "", "day": clock[:10],
        "seconds": int((ended - began).total_seconds()) if began and ended else 0}


def parts_of(record, key):
    """The levels, steps and measured values of a run."""
    levels, steps, values = [], [], []
    for level_number, level in enumerate(_objects(record, "levels"), 1):
        where = {"run": key, "levelNr": level_number, "level": level.get("level")}
        levels.append({**level, **where})
        for number, step in enumerate(_objects(level, "steps"), 1):
            where["nr"] = number
            steps.append({**step, **where})
            values += [{**value, **where} for value in _objects(step, "values")]
    return levels, steps, values


def stored(value):
    """As a store takes it. Empty is not unknown. PostgreSQL has no zero character, and no store
    half a pair of surrogates or whole numbers beyond 64 bits."""
    if isinstance(value, str):
        if not value.isascii():
            value = value.encode("utf-8", "replace").decode()
        return value.replace("\0", "")
    if isinstance(value, list):  # texts, a line each
        return stored("\n".join(map(text_of, value)))
    if isinstance(value, dict):
        return ""
    if isinstance(value, bool):
        return int(value)
    return float(value) if isinstance(value, int) and abs(value) >= 1 << 63 else value


def _objects(fields, name):
    """The objects in a list; what is none counts as an empty one."""
    entries = fields.get(name)
    return [entry if isinstance(entry, dict) else {}
            for entry in (entries if isinstance(entries, list) else [])]


def _moment(text):
    """A time, or None."""
    try:
        return datetime.datetime.fromisoformat(text).astimezone(datetime.timezone.utc)
    except (TypeError, ValueError, OverflowError):
        return None
