"""Ctrl-C, and SIGTERM and SIGHUP like it: the first raises KeyboardInterrupt, for everything to end
in order; a second one ends the program at once."""
import contextlib
import signal

_seen = _held = False


def _end(number, _):
    global _seen
    _seen = True
    signal.signal(number, signal.SIG_DFL)
    if not _held:
        raise KeyboardInterrupt


def catch():
    """From now on; those that came before, which the bench has held back, come now."""
    numbers = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
    for number in numbers:
        # Who starts a program to outlive the terminal says so.
        if number != signal.SIGHUP or signal.getsignal(number) != signal.SIG_IGN:
            signal.signal(number, _end)
    signal.pthread_sigmask(signal.SIG_UNBLOCK, numbers)


def hold():
    """From now on the first is noted only, but within allowed()."""
    global _held
    _held = True


@contextlib.contextmanager
def allowed():
    """Within it the first raises KeyboardInterrupt, at once if it came before."""
    global _held
    _held = False
    try:
        if _seen:
            raise KeyboardInterrupt
        yield
    finally:
        _held = True


def interrupted():
    """Whether the first has come."""
    return _seen
