"""The serial line to one panel, or at burn-in to several."""
import contextlib
import dataclasses
import errno
import fcntl
import os
import pathlib
import select
import sys
import termios
import time
import typing

import serial

from common.failure import Failure, Interrupted
from station import wire
from station.portlock import PortLock

# Texts without a line end are over when the line has been still for this long: well above the 16 ms
# that USB adapters hold bytes back, well below a person's patience.
QUIET = 0.06  # seconds
LOOK = 0.1  # seconds; how often a wait looks whether it shall end


@dataclasses.dataclass
class Request:
    bytes: str
    timeout_ms: int = 2000  # for each try; counted anew for the last one when `during` returns
    tries: int = 1
    framed: bool = True  # the answer is a frame: anything else is noise and waited past
    silence: bool = False  # no answer is due: one try, waits the whole time-out
    during: typing.Callable = None  # what must happen between request and answer


@dataclasses.dataclass
class Answer:
    bytes: str = ""  # all that came, noise included; empty for silence
    ms: float = 0  # of the last try, from the first byte written to the last read, or waited
    tries: int = 0
    error: str = ""  # the port failed


def _remedy(error):
    if error.errno in (errno.EACCES, errno.EPERM, errno.EBUSY, errno.EAGAIN):
        return ("busy or not permitted (fuser -v PORT shows who has it; usermod -aG dialout "
                "$USER)")
    return "the port has failed (is the adapter still plugged in?)"


def _absolute(path):
    """A path as people type it may begin in this folder or in /dev, a pty's be its number."""
    for folder in ("", "/dev/", "/dev/pts/"):
        file = folder + path
        if os.path.exists(file) and not os.path.isdir(file):
            return str(pathlib.Path(file).absolute())
    raise Failure(f"{path}: no such device (ls /dev/ttyUSB* /dev/ttyS*; is the adapter plugged "
                  "in?)")


def _is_answer(answer, framed):
    """Whether a complete answer ends the wait; damaged ones and noise do not, the good one may
    still come."""
    kind = wire.decode(answer).kind
    if framed:
        return kind in (wire.FRAME, wire.IDENTITY, wire.BATTERY)
    return kind not in (wire.NONE, wire.DAMAGED)


class Line:
    """Opens a serial device or a pty, with the line settings of a level: 9600 baud 7E1 at burn-in,
    which is RS-485, else 8E1 with RTS/CTS; nobody else gets it meanwhile. Raises Failure with the
    remedy. When `stop`, an event, is set, an exchange raises Interrupted. `tick`, where one is set,
    is called again and again while an exchange waits for the panel."""

    def __init__(self, path, level, stop=None):
        self._path, self._stop = _absolute(path), stop
        self._owed = 0  # answers that a repeated request may still bring
        self._last_answer = ""
        self.failure = ""  # why the port is of no use any more; empty if it is
        self.tick = None
        try:
            self._lock = PortLock(self._path)
            try:
                self._port = self._opened(level == "BI")
                fcntl.ioctl(self._port, termios.TIOCEXCL)
            except BaseException:
                self._lock.release()
                raise
        except (OSError, ValueError, termios.error) as error:
            if getattr(error, "errno", None):
                raise Failure(f"{self._path}: {_remedy(error)}") from None
            raise Failure(f"{self._path}: no serial port ({error})") from None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        with contextlib.suppress(OSError):  # pulled out
            fcntl.ioctl(self._port, termios.TIOCNXCL)
        self._port.close()
        self._lock.release()

    def _opened(self, bus):
        """What a port takes of the settings is set all the same."""
        def port(bits, parity):
            return serial.Serial(self._path, 9600, bits, parity, rtscts=not bus, timeout=0,
                                 write_timeout=1, exclusive=True)
        try:
            return port(serial.SEVENBITS if bus else serial.EIGHTBITS, serial.PARITY_EVEN)
        except termios.error:
            # A pty has neither parity nor seven bits.
            if not os.path.realpath(self._path).startswith("/dev/pts/"):
                print(f"{self._path}: the port refuses 9600 baud "
                      f"{'7E1' if bus else '8E1 with RTS/CTS'}; replies may be garbled",
                      file=sys.stderr)
            return port(serial.EIGHTBITS, serial.PARITY_NONE)

    def exchange(self, request):
        """The Answer to a Request."""
        answer = Answer()
        tries = 1 if request.silence else max(1, request.tries)
        if not self._owed:
            self._use(self._port.reset_input_buffer)  # nothing is due: what lies there is noise
        while answer.tries < tries and not self.failure:
            answer.tries += 1
            begin, before = time.monotonic(), 0
            self._use(self._write, request.bytes)
            if request.during:
                request.during()
                before = time.monotonic() - begin
            answer.bytes, seconds = self._await_answer(request)
            waited = before + seconds if answer.bytes else time.monotonic() - begin
            answer.ms = round(1000 * waited, 6)
            if _is_answer(answer.bytes, request.framed):
                break
        self._owed = max(0, answer.tries - 1)
        self._last_answer = answer.bytes
        answer.error = self.failure
        return answer

    def _use(self, call, *args):
        """What it returns; None when the port has failed."""
        try:
            return call(*args)
        except (OSError, termios.error) as error:
            fault = error if isinstance(error, OSError) else OSError(*error.args)
            self.failure = f"{self._path}: {_remedy(fault)}"
            return None

    def _write(self, text):
        # The peer may hold the line; that nothing is answered will show.
        with contextlib.suppress(serial.SerialTimeoutException):
            self._port.write(text.encode("latin-1", "replace"))

    def _await_bytes(self, seconds):
        """Whether some came."""
        end = time.monotonic() + seconds
        while True:
            if self._stop and self._stop.is_set():
                raise Interrupted
            left = end - time.monotonic()
            if select.select([self._port], [], [], max(0, min(LOOK, left)))[0]:
                return True
            if left <= LOOK:
                return False
            if self.tick:
                self.tick()

    def _await_answer(self, request):
        """Bytes, and seconds until the last of them."""
        begin, last = time.monotonic(), 0
        text, quiet = "", False
        while not self.failure:
            left = request.timeout_ms / 1000 - (time.monotonic() - begin)
            if left <= (0 if quiet or not text else -1):  # an answer that has begun may end
                break
            quiet = not self._await_bytes(QUIET if text else left)
            if not quiet:
                text += (self._use(self._port.read, 4096) or b"").decode("latin-1")
                last = time.monotonic() - begin
            if not wire.is_complete(text, quiet):
                continue
            if self._owed and text == self._last_answer:  # late, to a request already repeated
                self._owed -= 1
                text = ""
            elif _is_answer(text, request.framed):
                break
        return text, last
