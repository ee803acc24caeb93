"""The place where the panel stands: what a plan may ask of it around an exchange."""
import contextlib
import os
import re
import select
import termios
import threading

from common.failure import Interrupted
from common.terminal import say, show_status


class Stand:
    """An action is one text, a verb and its argument; docs/plans.md explains them all,
    plans/actions.json has their form and what a person is asked. "settle SECONDS" comes from the
    runner: to wait while a released panel archives its logs and clears its SRAM, for with its power
    cut it would keep test data. Who cannot see the end of it waits so long."""

    def __init__(self):
        self.screens = {}  # PNG images kept by "screenshot", by name

    def act(self, action):
        """Empty if it was done, else what went wrong."""
        raise NotImplementedError

    def wants_again(self, fault):
        """Whether a step that failed so shall be tried again."""
        return False


def _row_of(action, known):
    """The row of an action, the text in its form put into the question; None for none."""
    for row in known:
        match = re.fullmatch(row["action"], action, re.ASCII)
        if match:
            part = match.groups("")[0] if match.re.groups else ""
            return row | {"ask": str(row.get("ask", "")).replace("%1", part)}
    return None


def action_fault(action, known):
    """What is wrong with an action's text, empty if nothing; `known` are rows of actions.json."""
    forms = ", ".join(row["action"] for row in known)
    return "" if _row_of(action, known) else f'unknown action "{action}"; known are: {forms}'


_one_question = threading.Lock()  # at a time


CONFIRM, AGAIN = "[Enter = yes, n = no]", "[r = again, Enter = go on]"


class TerminalStand(Stand):
    """A real panel: a person does what the plan asks and confirms it on the terminal. `actions`:
    rows of actions.json. `unattended` takes every confirmation as given. When `stop`, an event, is
    set, all of it raises Interrupted."""

    def __init__(self, port, actions, unattended, stop):
        super().__init__()
        self._port, self._actions, self._unattended, self._stop = port, actions, unattended, stop

    def act(self, action):
        verb, _, argument = action.partition(" ")
        if verb == "fault":
            return "faults can be set on a virtual panel only"
        if verb == "settle":
            return self._settle(int(argument))
        row = _row_of(action, self._actions)
        if not row or not row["ask"]:
            return action_fault(action, self._actions)
        with _one_question:
            show_status("")
            question = f">> {self._port}: {row['ask']}  "
            if self._unattended:
                say(question + "[taken as done]")
                return ""
            self._ask(question + CONFIRM)
            for line in row.get("picture", []):
                say(line)
            return "not confirmed: " + row["ask"] if self._answer(CONFIRM, "Y") == "N" else ""

    def wants_again(self, fault):
        """Asks only a person who sits at a terminal."""
        if self._unattended or not os.isatty(0):
            return False
        with _one_question:
            show_status("")
            self._ask(f">> {self._port}: {fault}", bad=True)
            say("   Try it again?  " + AGAIN)
            return self._answer(AGAIN, "R") == "R"

    def _settle(self, seconds):
        show_status("")
        say(f">> {self._port}: keep the power on for {seconds} s: the panel archives its logs and "
            "clears its SRAM")
        if self._stop.wait(seconds):
            raise Interrupted
        return ""

    def _ask(self, question, bad=False):
        """What was typed before the question is no answer to it."""
        with contextlib.suppress(termios.error):  # no terminal
            termios.tcflush(0, termios.TCIFLUSH)
        say(question, bad)

    def _answer(self, choices, letter):
        """The first letter of a line that a person types, upper-case: `letter`, "N" or, of an empty
        line, none; any other is no answer. "N" when there is no one."""
        while True:
            typed = self._typed()
            first = typed[:1].decode("latin-1").upper()
            if not typed or first in ("\n", "N", letter):
                return first.strip() if typed else "N"
            say("   " + choices)

    def _typed(self):
        """A line without the blanks before it, empty at the end of the input."""
        typed = b""
        while not typed.endswith(b"\n"):
            if self._stop.is_set():
                raise Interrupted
            if not select.select([0], [], [], 0.1)[0]:
                continue
            byte = _read_byte()
            if not byte:
                return b""
            typed = (typed + byte).lstrip(b" \t")
        return typed


def _read_byte():
    """None is left behind in a buffer that select() knows nothing of."""
    try:
        return os.read(0, 1)
    except OSError:
        return b""
