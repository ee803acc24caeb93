"""The commands of `bench` that are Python programs; the bench starts them by
    program.py COMMAND ARGUMENT...
The environment names the bench itself (BENCH) and its version (BENCH_VERSION)."""
import importlib
import os
import sys

from common import interrupt
from common.failure import Failure

COMMANDS = {
    "station": "commands.station", "produce": "commands.produce", "send": "commands.send",
    "units": "commands.units", "board": "commands.board", "effects": "effects.effects",
    "cuts": "effects.cuts", "kills": "effects.kills"}


def main(name, args):
    """The exit status: a command's own, 2 when the bench cannot work, 1 after Ctrl-C."""
    interrupt.catch()
    sys.stdout.reconfigure(errors="backslashreplace")
    sys.stderr.reconfigure(errors="backslashreplace")
    try:
        return importlib.import_module(COMMANDS[name]).main(args)
    except BrokenPipeError:  # whoever read has enough
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1
    except (Failure, OSError) as failure:
        print(f"bench {name}: {failure}", file=sys.stderr)
        return 1 if interrupt.interrupted() else 2
    except KeyboardInterrupt:
        return 1


if __name__ == "__main__":
    whole = [os.fsencode(word).decode(errors="replace") for word in sys.argv[1:]]
    sys.exit(main(whole[0], whole[1:]))
