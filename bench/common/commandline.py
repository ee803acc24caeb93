"""The options and words of a command."""
import argparse
import re

from common.failure import Failure
from station.requests import WIRE_LEVELS


class _Help(argparse.RawDescriptionHelpFormatter):
    def __init__(self, prog):
        super().__init__(prog, max_help_position=26)


class CommandLine(argparse.ArgumentParser):
    """One command's, "bench NAME". Everything that is wrong raises Failure: what nobody knows, a
    value left out. --help is answered, in the form that the bench's other commands have."""

    def __init__(self, name, description, epilog=None):
        super().__init__(prog=f"bench {name}", usage=argparse.SUPPRESS, epilog=epilog,
                         formatter_class=_Help, add_help=False, allow_abbrev=False)
        self._usage, self._about = f"Usage: bench {name} [options]", description
        self._optionals.title, self._positionals.title = "Options", "Arguments"
        self._action_groups.reverse()
        self.add_argument("-h", "--help", action="help",
                          help="Displays help on commandline options.")

    def add_argument(self, *names, **how):
        metavar = how.get("metavar")
        if not names[0].startswith("-"):
            self._usage += {"?": " [{}]", "*": " [{}...]"}[how["nargs"]].format(metavar)
        elif metavar:
            how["metavar"] = f"<{metavar.lower()}>"
        return super().add_argument(*names, **how)

    def format_help(self):
        self.description = f"{self._usage}\n{self._about}"
        return super().format_help()

    def parse_args(self, words):
        return self.parse_intermixed_args(words)  # options anywhere between the words

    def error(self, message):
        # "argument --cuts: takes ..."
        raise Failure(re.sub("^argument (.*?):", r"\1", message) + ". See --help")


def file_name(text):
    """A type of options: a script's empty variable is no file."""
    if not text:
        raise argparse.ArgumentTypeError("takes a path, not an empty text")
    return text


def level_name(text):
    if text.upper() not in WIRE_LEVELS:
        raise argparse.ArgumentTypeError(f'takes ict, t1, bi, t2 or hmi, not "{text}"')
    return text.upper()


def number(least, most):
    """A type of options: whole numbers between these."""
    def read(text):
        try:
            if least <= int(text) <= most:
                return int(text)
        except ValueError:
            pass
        raise argparse.ArgumentTypeError(
            f'takes numbers from {least} to {most}, not "{text}"')
    return read


def numbers(least, most):
    """The same for several with commas."""
    read = number(least, most)
    return lambda text: [read(part) for part in text.split(",")]
