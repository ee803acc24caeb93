"""The station's own reading and writing of the PC link. It is written apart from the agent's link
code on purpose: a judge that shares the code it judges finds nothing. Bytes are texts here, a
character each."""
import dataclasses
import re
import string

# What came in answer to a request.
NONE = "none"  # nothing
FRAME = "frame"  # checked by hex_lrc()
IDENTITY = "identity"  # checked by character_lrc(): payload is the code and the ID
BATTERY = "battery value"  # frame without its line feed: payload is "0", volts, tenths, hundredths
TEXT = "text"  # raw text, as it came
DAMAGED = "damaged"  # begins like a frame and is none


@dataclasses.dataclass
class Reply:
    kind: str = NONE
    station: int = -1  # of the frame kinds
    payload: str = ""  # of the frame kinds without station and check digits, else the bytes
    noise: str = ""  # what came before the frame and belongs to nothing


def character_lrc(body):
    """Two's complement of the sum of the character codes, as two upper-case hex digits: the check
    of the requests and replies that carry an identity."""
    return f"{-sum(map(ord, body)) & 0xff:02X}"


def hex_lrc(body):
    """The same over the bytes that the pairs of hex digits stand for; what is no hex digit does not
    count."""
    digits = re.sub(r"[^0-9A-Fa-f]", "", body)
    return character_lrc(bytes.fromhex("0" * (len(digits) % 2) + digits).decode("latin-1"))


def short_request(number, code):
    """`number`: the station number, 0 for any panel."""
    body = f"{number:02X}{code}"
    return f":{body}{hex_lrc(body)}\r\n"


def clock_request(kind, time):
    """`kind` is "8D" (set) or "8E" (compare); the two columns between month and year are filled
    with the weekday."""
    weekday = f"{time.isoweekday() % 7:02}"
    body = time.strftime(f"00{kind}%S%M%H%d%m{weekday}%y")
    return f":{body}{hex_lrc(body)}\r\n"


def identity_request(code, identity):
    """`code` is "0601", "0602" or "0603"."""
    body = f"00{code}{identity}"
    return f":{body}{character_lrc(body)}\r\n"


def decode(answer):
    """What came in answer to one request."""
    noise, colon, frame = answer.rpartition(":")
    if not colon:
        return Reply(TEXT if answer else NONE, payload=answer)
    match = re.fullmatch(r"([0-9A-F]{6}.*)(..)\r(\n?)", frame, re.DOTALL)
    if match:
        body, check, line_feed = match.groups()
        hexadecimal = len(body) % 2 == 0 and not body.strip(string.digits + "ABCDEF")
        kind = DAMAGED
        if hexadecimal and check == hex_lrc(body):
            kind = FRAME if line_feed else BATTERY
        elif line_feed and body[2:4] == "07" and check == character_lrc(body):
            kind = IDENTITY
        if kind != DAMAGED:
            return Reply(kind, int(body[:2], 16), body[2:], noise)
    return Reply(DAMAGED, payload=answer, noise=noise)


def is_complete(answer, quiet):
    """Whether it needs no more: a line end came, or (`quiet`) the line fell silent and the text is
    one of those that have none. A frame that has only begun is not complete however quiet the line
    is."""
    endless = answer and (":" not in answer or answer.endswith("\r"))
    return answer.endswith("\n") or bool(quiet and endless)
