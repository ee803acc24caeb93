"""bench send: one request, its reply decoded."""
import sys

from common.bytetext import printable
from common.commandline import CommandLine, number
from common.failure import Failure
from common.terminal import say
from station import wire
from station.line import Line, Request
from station.requests import find_command, is_failure, meaning_of, request_of


def _arguments(words):
    parser = CommandLine(
        "send",
        "Sends one request to a panel and decodes the reply. CODE is a command code, or 8D and 8E\n"
        "(clock; ARGUMENT: seconds to be off), 0601 to 0603 (ARGUMENT: the ID), 9510 (ARGUMENT:\n"
        "RRGGBB), KLV- (forced change; ARGUMENT: ict, t1, bi, t2 or hmi).\n"
        "Exit status 0 if a good answer came, 1 if none, a damaged one or a failure did.\n"
        "Example: bench send --port /dev/ttyUSB0 8000")
    add = parser.add_argument
    add("--port", metavar="PATH", help="Serial device or pty of the PC link.")
    add("--station", metavar="NUMBER", type=number(0, 255), default=0,
        help="Station number, decimal (default 0: any).")
    add("--bi", action="store_true",
        help="Line settings of level BI (7E1 instead of 8E1 with RTS/CTS).")
    add("--model", metavar="MODEL", help="Model for the forced change, for example KLV-100.")
    add("--timeout", metavar="MS", type=number(1, 3600000), default=15000,
        help="Milliseconds to wait for the answer (default 15000).")
    add("code", metavar="CODE", nargs="?", help="What to ask.")
    add("argument", metavar="ARGUMENT", nargs="?", default="", help="Its data.")
    args = parser.parse_args(words)
    if not args.code or not args.port:
        raise Failure("which port and what code? Example: bench send --port /dev/ttyUSB0 8000")
    args.code = args.code.upper()
    if args.code == "KLV-" and args.model is None:
        raise Failure("the forced change needs the panel's model: --model KLV-100")
    return args


def main(words):
    args = _arguments(words)
    command = find_command(args.code)
    if not command:
        print(f"No panel knows the code {args.code}; sent all the same", file=sys.stderr)
    request = Request(request_of(args.code, args.argument, args.station, args.model or ""),
                      args.timeout, framed=command and command.framed)
    level = "BI" if args.bi else "ICT"
    with Line(args.port, level) as line:
        answer = line.exchange(request)
    reply = wire.decode(answer.bytes)
    sender = f" from station {reply.station}" if reply.station >= 0 else ""
    say(f"request  {printable(request.bytes)}")
    say(f"reply    {printable(answer.bytes)}")
    say(f"kind     {reply.kind}{sender}")
    say(f"meaning  {meaning_of(reply.payload, args.code)}")
    say(f"time     {answer.ms:.1f} ms")
    if answer.error:
        raise Failure(answer.error)
    bad = reply.kind in (wire.NONE, wire.DAMAGED)
    return int(bad or is_failure(reply, args.code, level))
