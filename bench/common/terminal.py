"""The terminal of a person who tests. All of it may be used from several threads."""
import os
import sys
import threading

from common.files import PAGES

_lock = threading.RLock()
_status = ""


def _write(text):
    try:
        sys.stdout.write(text)
        sys.stdout.flush()
    except OSError as error:  # nobody reads any more, or there is no more room; the test goes on
        if not isinstance(error, BrokenPipeError):
            print(f"bench: standard output: {error.strerror}; no more is shown", file=sys.stderr)
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())


def say(line, bad=False):
    """One line on standard output, never torn by another thread's; red for bad news where the
    terminal can."""
    with _lock:
        if bad and sys.stdout.isatty():
            line = f"\033[31m{line}\033[0m"
        _write(("\r\033[K" if _status else "") + line + "\n" + _status)


def show_status(line):
    """The last line, which changes in place while something goes on; empty takes it away. Nothing
    where standard output is no terminal."""
    global _status
    with _lock:
        if not sys.stdout.isatty() or line == _status:
            return
        _status = line
        _write("\r\033[K" + line)


def say_verdict(passed):
    """ "PASS" or "FAIL" in large letters on a terminal, else as a line."""
    if not sys.stdout.isatty():
        return say("PASSED" if passed else "FAILED")
    letters = (PAGES / ("pass.txt" if passed else "fail.txt")).read_text()
    say(f"\n\033[1;{32 if passed else 31}m{letters}\033[0m")
