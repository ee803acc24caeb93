"""The options and words of a command."""
import argparse
import re

from common.failure import Failure


class CommandLine(argparse.ArgumentParser):
    """One command's, "bench NAME". Everything that is wrong raises Failure: what nobody knows, a
    value left out. --help is answered."""

    def __init__(self, name, description, epilog=None):
        super().__init__(prog=f"bench {name}", description=description, epilog=epilog,
                         formatter_class=argparse.RawDescriptionHelpFormatter, allow_abbrev=False)

    def parse_args(self, words):
        return self.parse_intermixed_args(words)  # options anywhere between the words

    def error(self, message):
        # "argument --cuts: takes ..."
        raise Failure(re.sub("^argument (.*?):", r"\1", message) + ". See --help")


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
