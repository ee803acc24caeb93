"""The commands of `bench` that are Python programs; the bench starts them by
    program.py COMMAND ARGUMENT...
The environment names the bench itself (BENCH) and its version (BENCH_VERSION)."""
import importlib
import os
import sys

from common import interrupt
from common.failure import Failure, text_of_defect

COMMANDS = {
    "station": "commands.station", "produce": "commands.produce", "send": "commands.send",
    "units": "commands.units", "board": "commands.board", "effects": "effects.effects",
    "traffic": "commands.traffic",
    "cuts": "effects.cuts", "kills": "effects.kills"}


def _open_standard_files():
    """A file that takes the place of a closed one would be read from and written to."""
    for number, name in enumerate(("stdin", "stdout", "stderr")):
        if getattr(sys, name) is None:
            os.open(os.devnull, os.O_RDWR)  # the lowest number that is free
            setattr(sys, name, open(number, "w" if number else "r", encoding="utf-8"))


def _text_of(failure):
    if isinstance(failure, OSError) and failure.strerror:
        return f"{failure.filename}: " * bool(failure.filename) + failure.strerror
    return str(failure) if isinstance(failure, (Failure, OSError)) else text_of_defect(failure)


def main(name, args):
    """The exit status: a command's own, 2 when the bench cannot work, 1 after Ctrl-C."""
    _open_standard_files()
    sys.stdout.reconfigure(errors="backslashreplace")
    sys.stderr.reconfigure(errors="backslashreplace")
    try:
        interrupt.catch()
        return importlib.import_module(COMMANDS[name]).main(args)
    except BrokenPipeError:  # whoever read has enough
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1
    except KeyboardInterrupt:
        print(f"bench {name}: interrupted", file=sys.stderr)
        return 1
    except Exception as failure:
        print(f"bench {name}: {_text_of(failure)}", file=sys.stderr)
        return 1 if interrupt.interrupted() else 2


if __name__ == "__main__":
    whole = [os.fsencode(word).decode(errors="replace") for word in sys.argv[1:]]
    sys.exit(main(whole[0], whole[1:]))
