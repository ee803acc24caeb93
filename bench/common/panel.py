"""A virtual panel that a program drives."""
import contextlib
import os
import pathlib
import subprocess

from common.bytetext import printable, unprintable
from common.failure import Failure
from station.plan import level_items
from station.requests import request_of

ICT = "/usr/local/ict/"
LEVEL_FILE = ICT + "HMI_TEST_LEVEL.txt"
ID_FILE, SEMI_ID_FILE = ICT + "HMI_MACHINE_ID.txt", ICT + "HMI_SEMIMACHINE_ID.txt"
STATION_FILE = ICT + "HMI_STATION_NUM.txt"
ARCHIVED_LOG = ICT + "HMI_Factory_Resume.txt"


def flag_file(level):
    return f"{ICT}HMI_{level}_TEST_Flag.txt"


class Panel:
    """A virtual panel on its fixture, off at first, driven through a `bench` of its own. `wrapper`:
    the program that starts the agent. `folder`: where its files stay; else they go with it.
    `board`: it is the whole ARM machine. `own_disk`: which has one for the agent's files, so that
    they are not to be had here."""

    def __init__(self, wrapper=(), folder="", board=False, own_disk=False):
        options = ["--folder", folder] if folder else []
        options += ["--ict-disk", "own"] if own_disk else []
        tier = {"BENCH_BOARD": "1"} if board else {}
        self._bench = subprocess.Popen(
            [os.environ["BENCH"], "drive", *options, *wrapper], text=True, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, env=os.environ | tier,
            start_new_session=True)  # Ctrl-C is for its user alone
        self._root = self._answer()

    def __enter__(self):
        return self

    def __exit__(self, failure, *_):
        if failure:
            self._bench.terminate()  # it may wait for something, for long
        with contextlib.suppress(BrokenPipeError):
            self._bench.stdin.close()
        self._bench.wait()

    def do(self, action):
        """What DrivenPanel knows, or what is done to its files; the answer."""
        verb, _, rest = action.partition(" ")
        path, _, text = rest.partition(" ")
        if verb == "level":
            self.write(LEVEL_FILE, f"{rest:3}\n")
        elif verb == "file":
            self.write(path, unprintable(text))
        elif verb == "remove":
            self.path(path).unlink(missing_ok=True)
        elif verb == "passed":  # every item but the end check
            items = level_items(rest)
            lines = [f"{item}: {int(item != items[-1])}" for item in items]
            self.write(flag_file(rest), "".join(line.ljust(62, "\0") + "\r\n" for line in lines))
        else:
            if verb == "ask" and not rest.startswith('"'):  # as `bench send` takes it
                action = f'ask "{printable(request_of(path, text, model="KLV-100"))}"'
            with contextlib.suppress(BrokenPipeError):  # then there is no answer
                print(action, file=self._bench.stdin, flush=True)
            return self._answer()
        return "ok"

    def _answer(self):
        answer = self._bench.stdout.readline().rstrip("\n")
        if not answer or answer.startswith("error: "):
            raise Failure(answer.removeprefix("error: ") or "its panel cannot be driven any more")
        return answer

    def path(self, path):  # on this machine
        return pathlib.Path(self._root + path)

    def read(self, path):  # empty if there is none
        file = self.path(path)
        return file.read_bytes().decode("latin-1") if file.is_file() else ""

    def write(self, path, text):
        self.path(path).parent.mkdir(parents=True, exist_ok=True)
        self.path(path).write_bytes(text.encode("latin-1"))
