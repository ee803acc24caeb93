"""What ends a command."""


class Failure(Exception):
    """The bench itself cannot work; the text says what to do."""
