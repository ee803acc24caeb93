"""What ends a command."""


class Failure(Exception):
    """The bench itself cannot work; the text says what to do."""


class Interrupted(Failure):
    """Someone wants it to end."""

    def __init__(self):
        super().__init__("interrupted")
