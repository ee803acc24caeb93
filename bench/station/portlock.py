"""The file by which terminal programs tell each other who has a port: process number and name."""
import contextlib
import errno
import os
import pathlib


def _name_of(process):
    return pathlib.Path("/proc", str(process), "comm").read_text("utf-8", "replace").strip()


class PortLock:
    """Takes it, where that can be done. Raises OSError while the process runs that another one's
    file names."""

    def __init__(self, path, folder="/var/lock"):
        self._file = pathlib.Path(folder, "LCK.." + path.removeprefix("/dev/").replace("/", "_"))
        if self._is_taken():
            raise OSError(errno.EBUSY, os.strerror(errno.EBUSY))
        self.release()  # what a crash has left
        with contextlib.suppress(OSError):
            self._file.write_text(f"{os.getpid():10} {_name_of('self')}\n")

    def _is_taken(self):
        try:
            process, *name = self._file.read_text("utf-8", "replace").split()
            running = _name_of(process)
        except (OSError, ValueError):
            return False
        return not name or name[0][:15] == running  # else another one has the number now

    def release(self):
        with contextlib.suppress(OSError):
            self._file.unlink()
