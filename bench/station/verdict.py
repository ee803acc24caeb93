"""What an answer means, and what is wrong with it."""
import dataclasses
import re

from common.bytetext import as_bytes, printable
from station import wire
from station.plan import PLACEHOLDER, expand
from station.requests import advice_of, find_command, meaning_of

# Pixels of the five targets of the touch check.
TARGETS = {"9021": (50, 50), "9022": (750, 50), "9023": (750, 430), "9024": (50, 430),
           "9025": (400, 240)}


@dataclasses.dataclass
class Verdict:
    reply: wire.Reply
    meaning: str = ""
    faults: list = dataclasses.field(default_factory=list)  # in words; none: passed
    measured: list = dataclasses.field(default_factory=list)  # as docs/bench.md describes "values"
    unanswered: bool = False
    advice: str = ""  # what to look at; empty when nobody knows


def expects_frame(step):
    """Whether the answer that a step expects is a frame."""
    return not step["silence"] and "text" not in step and step.get("bytes", ":").startswith(":")


def _wanted_text(step, values):
    """What a text should have been, for people: a regular expression is none of their business."""
    if "expected" in step:
        return expand(step["expected"], values)
    literal = re.sub(r"(\\[rn])+$", "", step["text"])
    plain = not re.search(r"[][\\()*+?|^$.]", PLACEHOLDER.sub("", literal))
    return expand(literal, values) if plain else "another form"


def _volts(millivolts):
    return f"{millivolts / 1000:.2f} V"


def _with_code(meaning, payload):
    """Bytes that a person may want to look up, where they are short enough."""
    text = printable(payload)
    return f"{meaning} ({text})" if len(payload) == 4 and text not in meaning else meaning


def _millivolts(reply):
    if reply.kind != wire.BATTERY:
        return -1
    return int(reply.payload) * 10 if re.fullmatch("[0-9]{4}", reply.payload) else 0


def _mismatch(step, answer, verdict, values):
    """What is wrong with the content of an answer, empty for nothing."""
    reply, meaning = verdict.reply, verdict.meaning
    if "text" in step:
        good = re.fullmatch(expand(step["text"], values, pattern=True), answer, re.ASCII)
        return "" if good else f"{meaning}, expected {_wanted_text(step, values)}"
    if "bytes" in step:
        due = as_bytes(expand(step["bytes"], values))
        return "" if answer == due else f"{printable(answer)}, expected {printable(due)}"
    if "battery" in step:
        least, most = step["battery"]
        good = least <= _millivolts(reply) <= most
        return "" if good else f"{meaning}, expected {_volts(least)} to {_volts(most)}"
    if step["silence"]:
        return "answered where no answer is due: " + meaning
    if reply.kind == wire.DAMAGED:
        return meaning
    due = as_bytes(expand(step.get("reply", ""), values))
    if reply.kind != wire.TEXT and reply.payload == due:
        return ""
    command = find_command(step["code"])
    seen = _with_code(meaning, reply.payload)
    if command and due == command.passed:
        return seen
    return f"{seen}, expected {_with_code(meaning_of(due, step['code']), due)}"


def _measured(step, reply, level):
    """What was measured, with its limits where there are some."""
    if reply.kind == wire.BATTERY:
        limits = dict(zip(("min", "max"), step.get("battery", ())))
        return [{"name": "battery", "unit": "mV", "value": _millivolts(reply)} | limits]
    match = re.match(r"\( *(\d{1,9}), *(\d{1,9})\)", reply.payload, re.ASCII)
    if reply.kind != wire.TEXT or not match:
        return []
    code, command = step["code"], find_command(step["code"])
    name = command.meaning if command else step["name"]
    seen = {"x": int(match[1]), "y": int(match[2])}
    # A touch of the check is judged by how far it is from its target, the others by nobody.
    if not code.startswith("902"):
        return [{"name": f"{name} {axis}", "unit": "px", "value": value}
                for axis, value in seen.items()]
    tolerance = 11 if level == "T2" else 10
    return [{"name": f"{name}, {axis} off", "unit": "px", "value": value - aim,
             "min": -tolerance, "max": tolerance}
            for (axis, value), aim in zip(seen.items(), TARGETS.get(code, (0, 0)))]


def judge(step, answer, values, level, number, strict):
    """`level` is the panel's, `number` its station number. `strict`: noise before a good reply is a
    fault, and so is a request that had to be repeated."""
    verdict = Verdict(reply=wire.decode(answer.bytes))
    reply, faults = verdict.reply, verdict.faults
    if answer.error:
        faults.append(answer.error)
    verdict.meaning = "damaged answer: " + printable(answer.bytes) if reply.kind == wire.DAMAGED \
        else meaning_of(reply.payload, step["code"])
    silent = reply.kind == wire.NONE
    verdict.unanswered = bool(answer.error) or silent and not step["silence"]
    if silent and step["silence"]:
        verdict.meaning = "no answer, as it must be"
    elif silent:
        faults.append(f"no answer (asked {answer.tries} times, for {step['timeout'] / 1000:g} s "
                      "each)")
    if silent:
        return verdict
    verdict.advice = "" if verdict.unanswered else advice_of(reply.payload, step["code"])
    verdict.measured = _measured(step, reply, level)
    wrong = _mismatch(step, answer.bytes, verdict, values)
    if wrong:
        faults.append(wrong)
    due = number if level == "BI" or step["addressed"] else 0
    if reply.station not in (-1, due) and reply.kind != wire.IDENTITY and not step["raw"]:
        faults.append(f"answered as station {reply.station} instead of {due}")
    if strict and reply.noise:
        faults.append("bytes before the reply: " + printable(reply.noise))
    if strict and answer.tries > 1:
        faults.append(f"answered only at request {answer.tries}")
    return verdict
