"""What a station knows of the panel's commands: where each is allowed, how it is answered, what it
means. The texts and tables are data, plans/commands.json."""
import dataclasses
import datetime
import functools
import re
import time

from common.bytetext import as_bytes, printable
from common.failure import Failure
from common.files import PLANS, read_json
from station import wire

LEVELS = ("ICT", "T1", "BI", "T2")
WIRE_LEVELS = {"ICT": "04", "T1": "01", "BI": "02", "T2": "03", "HMI": "00"}


@dataclasses.dataclass
class Command:
    """Short requests go by four characters, long ones by "8D", "8E", "0601", "9510", "KLV-"."""
    code: str
    levels: list  # where the panel knows the code
    framed: bool  # answered by a frame, else by raw text, a frame of its own kind or not
    meaning: str
    settle: int  # seconds for which a pass leaves work, as a rule, that a cut of power would lose

    @property
    def passed(self):  # the payload of a pass
        return self.code + "00" if len(self.code) == 2 else self.code


@functools.cache
def _data():
    return read_json(PLANS / "commands.json")


@functools.cache
def _commands():
    return {row["code"]: Command(row["code"], row["levels"].split(), row["answer"] == "frame",
                                 row["means"], row.get("settle", 0))
            for row in _data()["commands"]}


def find_command(code):
    """None for a code that no panel knows."""
    return _commands().get(code)


def command_of(request):
    """The command that the bytes of a request ask for; None for what is none."""
    if not request.startswith(":"):
        return find_command("KLV-") if request.endswith("\r\n") and "-" in request else None
    if request.startswith(":9510"):
        return find_command("9510")
    return find_command(request[3:5]) or find_command(request[3:7])


def request_of(code, argument="", number=0, model=""):
    """A request by its code. `argument`: the ID, the colour (six hex digits), the level to go to,
    or by how many seconds the clock is off. `number`: the panel's station number, 0 for any.
    `model` is for the forced change only. Raises Failure for a forced change to what is no level,
    and for a clock that is off by what is no number."""
    if code in ("8D", "8E"):
        try:
            moment = datetime.datetime.fromtimestamp(time.time() + int(argument or 0))
        except (ValueError, OverflowError, OSError):
            raise Failure(f'the clock is off by a number of seconds, not by "{argument}"') from None
        return wire.clock_request(code, moment)
    if code.startswith("060"):
        return wire.identity_request(code, as_bytes(argument))
    if code == "9510":  # without station, check digits and line end
        return ":9510" + as_bytes(argument)
    if code == "KLV-":
        # A bare line. Its line end makes it the 11 bytes that the panel reads at least, whatever
        # the model.
        level = WIRE_LEVELS.get(argument.upper())
        if not level:
            raise Failure(f'a forced change goes to ict, t1, bi, t2 or hmi, not to "{argument}"')
        return f"{as_bytes(model)}-{level}\r\n"
    return wire.short_request(number, as_bytes(code))


def meaning_of(payload, code):
    """A reply payload (or raw text) in words, for the request `code` ("" when unknown)."""
    if not payload:
        return "no answer"
    known = _data()["answers"].get(payload)
    if known:
        return known
    command = find_command(code)
    what = command.meaning if command else "unknown request"
    text = printable(payload.strip(" \t\r\n\v\f"))
    if code in ("8800", "8801") and len(payload) == len(text) == 4:
        return f"{what}: {text[1]}.{text[2:]} V"
    if len(payload) > 4 and payload.startswith(code) and code.startswith("07"):
        return f"{what} {text[4:].strip()}"
    if len(payload) != 4 or (command and not command.framed and payload.endswith("\n")):
        return f"{what} {text}"
    if command and payload == command.passed:
        return what + ": passed"
    if payload[:2] == code[:2] and payload[2] > "9":
        return what + ": failed"
    return f"{what}: foreign answer {text}"


def advice_of(payload, code):
    """What to look at when the request `code` was answered so; empty where nobody knows."""
    advice = _data()["advice"]
    return advice.get(payload, advice.get(code, ""))


def is_failure(reply, code, level):
    """Whether the request `code`, at `level`, was answered by what says failure or is no answer to
    it."""
    command = find_command(code)
    if not command:
        return False
    judged = code == "8800"  # at BI, where a low battery sends its value, a good one 0295
    if reply.kind == wire.FRAME:
        return reply.payload != command.passed and not (judged and reply.payload == "0295")
    if reply.kind == wire.BATTERY:
        return command.framed or (judged and level == "BI")
    if reply.kind == wire.TEXT:  # or noise
        return command.framed or code[:2] in ("88", "07") or reply.payload == "FORCIBLY_GOTO_FAIL"
    return False


def refusal(request, level, station=0):
    """Why a panel at `level`, with the number `station`, leaves `request` without an answer; empty
    when it should answer."""
    command = command_of(request)
    if not command:
        return "no panel knows this request"
    if level not in command.levels:
        return f"not at level {level}"
    # The clock's check digits are not looked at; the colour and the forced change have none.
    if len(command.code) != 4 or command.code in ("9510", "KLV-"):
        return ""
    if not request.endswith("\r\n"):
        return "no line end"
    body, check = request[1:-4], request[-4:-2]
    wanted = wire.character_lrc(body) if body[2:4] == "06" else wire.hex_lrc(body)
    if check != wanted:
        return f"check digits should be {wanted}"
    asked = int(body[:2], 16) if re.match("[0-9A-Fa-f]{2}", body) else 0
    own = station if level == "BI" else 0
    if asked in (0, own) or command.code == "8A00":
        return ""
    return f"for station {asked}, here is {own}"
