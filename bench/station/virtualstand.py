"""The stand of a panel that is not there."""
import os
import pathlib
import subprocess
import tempfile
import time

from common.bytetext import unprintable
from common.panel import ARCHIVED_LOG
from common.terminal import say
from common.waiting import wait_for
from station.panelfiles import PanelFiles
from station.stand import Stand

# Seconds; of the whole ARM machine on a busy host.
WRITTEN, CLOSED, EMULATED_CLOSED = 5, 30, 600
LOOKS = ("screenshot", "look", "touch")  # what may keep a screen
BOARD = "BENCH_BOARD" in os.environ


class VirtualStand(Stand):
    """Does everything itself and looks at the panel's screen and files with eyes of its own."""

    def __init__(self, panel):
        super().__init__()
        self._panel = panel
        self.files = PanelFiles(panel.path("/"))  # what "files" compares
        self.state_folder = ""  # of the texts that it compares them with; empty: it does not

    def act(self, action):
        verb, _, argument = action.partition(" ")
        if verb == "ask":
            return ""
        if verb == "files":
            return self._compare(argument)
        if verb == "settle":
            return self._settle()
        wrong = self._order(f"act {action}")
        if verb in LOOKS:
            self._take_screens()
        return wrong

    def power_on(self):
        """Switches on and waits until the panel listens on its PC link. Empty, or what went
        wrong."""
        return self._order("boot")

    def port(self, level):
        """The pty of the PC link at a level, while the panel is on."""
        return self._panel.do(f"link {level}")

    def _order(self, order):
        """What is wrong with the panel; empty for nothing."""
        text = self._panel.do(order).removeprefix("ok").removeprefix("wrong: ")
        return unprintable(text).encode("latin-1").decode(errors="replace")

    def _take_screens(self):
        with tempfile.TemporaryDirectory() as folder:
            self._panel.do(f"screens {folder}")
            for file in pathlib.Path(folder).iterdir():
                self.screens[file.stem] = file.read_bytes()

    def _compare(self, state):
        if not self.state_folder:
            return ""
        return "; ".join(self.files.differences(f"{self.state_folder}/{state}.txt", WRITTEN))

    def _settle(self):
        """Sees the end of it in the panel's log."""
        def closed():
            log = self.files.read(ARCHIVED_LOG)
            return log.strip().endswith("== Test End =====================")
        begun = time.monotonic()
        over = wait_for(closed, EMULATED_CLOSED if BOARD else CLOSED)
        say(f"     power kept on for {1000 * (time.monotonic() - begun):.0f} ms: the panel "
            "archives its logs and clears its SRAM")
        return "" if over else 'the panel\'s log does not end in "Test End"'


def identity_of(panel):
    """What a panel's own software says it is: "model" (without the line's prefix), "version" and
    "crc", worked out from what lies on the virtual panel."""
    values = {}
    for line in panel.read("/usr/local/HMIAPP/identity").split("\n"):
        if line.startswith("Model="):
            values["model"] = line[6:]
        elif line.startswith("Version="):
            values["version"] = f"{line[8:9]}.{line[10:14]}.120"
    with panel.path("/dev/mtd0").open("rb") as flash:
        cksum = subprocess.run("cksum", stdin=flash, capture_output=True, check=True)
    values["crc"] = f"{int(cksum.stdout.split()[0]):08X}"
    return values
