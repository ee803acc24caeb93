"""A whole ARM machine, factory-new, on its fixture and with a station: for the looks at it and the
cuts of its power."""
from common.bytetext import unprintable
from common.failure import Failure
from common.panel import LEVEL_FILE, Panel
from common.waiting import wait_for
from station import wire
from station.line import Line, Request
from station.requests import LEVELS, find_command, request_of

READY = 600  # seconds; an emulated machine on a busy one


class BoardRig(Panel):
    def __init__(self, own_disk=False):
        super().__init__(board=True, own_disk=own_disk)
        self.level = "ICT"
        self._line = None
        self.do("new")

    def __exit__(self, *failure):
        self._hang_up()
        super().__exit__(*failure)

    def power_on(self):
        """Returns when the agent listens at the level that the panel's file has. Raises Failure
        when the panel does not come up."""
        self.do("on")
        if not wait_for(self._at_level, READY):
            self._fail("The panel has no legal level")
        if not wait_for(lambda: self.do(f"ready {self.level}") == "yes", READY):
            self._fail("The agent does not open its port")
        self._hang_up()
        self._line = Line(self.do(f"link {self.level}"), self.level)

    def _at_level(self):  # factory-new the agent makes the file, in its boot
        self.level = self.run(f"cat {LEVEL_FILE}").strip()
        return self.level in LEVELS

    def _fail(self, what):
        raise Failure(f"{what}: {self.read('/var/log/ict-panel.log')}")

    def _hang_up(self):
        if self._line:
            self._line.close()
        self._line = None

    def run(self, command):
        """What a shell on the machine prints, errors included."""
        return unprintable(self.do(f"run {command}")[1:-1])

    def ask(self, code, argument="", timeout_ms=120000):
        """What the panel answers in time, empty for nothing; ids and the like as `argument`."""
        command = find_command(code)
        request = Request(request_of(code, argument, model="KLV-100"), timeout_ms,
                          framed=command and command.framed)
        return wire.decode(self._line.exchange(request).bytes).payload
