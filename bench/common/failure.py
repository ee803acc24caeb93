"""What ends a command."""
import pathlib
import traceback


class Failure(Exception):
    """The bench itself cannot work; the text says what to do."""


class Interrupted(Failure):
    """Someone wants it to end."""

    def __init__(self):
        super().__init__("interrupted")


def text_of_defect(wrong):
    """Of an exception that nobody expected: all that its user can report, in one line."""
    place = traceback.extract_tb(wrong.__traceback__)[-1]
    return f"the bench has failed: {wrong!r} ({pathlib.Path(place.filename).name}:{place.lineno})"
