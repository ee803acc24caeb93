"""bench soak --kills: panels in production, killed at random and aimed moments, booted, judged."""
import collections
import concurrent.futures
import contextlib
import math
import os
import random
import signal
import sys
import threading
import time

from common.bytetext import unprintable
from common.failure import Failure
from common.files import PLANS, read_json
from common.panel import ID_FILE, LEVEL_FILE, SEMI_ID_FILE, STATION_FILE, Panel
from common.waiting import wait_for
from effects.powercut import (POINTERCAL, Cut, boot_level, passed_items, revived, state_of,
                              verdict)
from station.plan import expand, step_of
from station.requests import is_failure
from station.wire import decode

# From what to the kill, at most, in seconds: power-on, the open link, a request beside its own
# wait, its answer, the first touch of a calibration.
BOOT, WORK, ASK, AFTER, TOUCH = 3, 8, 0.25, 0.06, 9
LONG_PASS = 60  # kills; a forced change may take a panel past what its next level needs
NEXT = {"0400": "T1", "0100": "BI", "0200": "T2", "0300": "HMI", "0101": "HMI"}
STORED = {"0601": ID_FILE, "0602": SEMI_ID_FILE, "8A00": STATION_FILE, "9000": POINTERCAL,
          "9004": POINTERCAL}
KINDS = {"": "boot", "KLV-": "forced change", **dict.fromkeys(NEXT, "end check"),
         **dict.fromkeys(STORED, "identity, station"),
         **dict.fromkeys(("9000", "9004"), "calibration")}


def kind_of(step):
    return KINDS.get(step["code"], "item")


def steps_of(plan, values):
    steps = [step_of(row) for row in read_json(PLANS / plan)["steps"]]
    return [step | {"argument": expand(step["argument"], values), "items": set(step["items"])}
            for step in steps if not step["silence"]]


class Victim:
    """A panel that is taken through production again and again, and killed."""

    def __init__(self, panel):
        self.kills, self.answered, self.wrong = (collections.Counter() for _ in range(3))
        self.unrecorded = self.passes = 0
        self._panel = panel
        self._passes = self._ids = 0
        self._begin()

    def _begin(self):
        """A factory-new panel; every other one goes straight from T1 to HMI."""
        self._panel.do("new")
        self._promised = {}  # files as they were confirmed to the station, by path
        self._killed = 0  # times in this pass
        self._new_ids()
        t1 = "extended/t1.json" if self._passes % 2 else "t1.json"
        self._plans = {"ICT": "ict.json", "T1": t1, "BI": "bi.json", "T2": "t2.json"}
        self._passes += 1

    def _new_ids(self):
        self._ids += 1
        self._values = {"semiId": f"SEMI{self._ids:08}", "machineId": f"20254711T{self._ids:08}"}

    def _kill_in(self, seconds):
        """The first process of the panel's own takes all others along."""
        def kill(pid=self._first):
            with contextlib.suppress(ProcessLookupError):  # it ended by itself
                os.kill(pid, signal.SIGKILL)
        self._armed = True
        threading.Timer(seconds, kill).start()

    def _runs(self):
        return self._panel.do("runs") == "yes"

    def _act(self, actions):
        """As a plan says; what cannot be done on a dead panel is not."""
        for verb, _, rest in (action.partition(" ") for action in actions):
            try:
                if verb in ("touch", "plug"):
                    self._panel.do(rest if verb == "touch" else f"{verb} {rest}")
                elif verb == "fault":
                    self._panel.do(rest.replace("set", "fault").replace("clear", "mend"))
            except Failure:
                if self._runs():
                    raise

    def _ask(self, step, after=None):
        """False when nothing more is to be asked in this life. Kills `after` its answer."""
        self._act(step["before"])
        before = state_of(self._panel)
        code, argument, items = step["code"], step["argument"], step["items"]
        level = NEXT.get(code, argument if code == "KLV-" else "")
        was = before.get(LEVEL_FILE, "ICT\n")
        self._settled -= items
        self._pending = self._recorded - items
        self._cut = Cut(before, before, f"{level:3}\n" if level else was,
                        items=self._recorded | items,
                        machine_id=argument if code == "0601" else "")
        self._recorded, self._last, self._heard = set(), step, False
        self._promised.pop(STORED.get(code), None)
        self._panel.do(r'ask ":058A0071\r\n"' if code == "8A00" else f"ask {code} {argument}")
        self._act(step["during"])
        self._take(step, step["timeout"] + 10000)
        if after is not None:
            self._kill_in(after)
        self._act(step["after"])
        return self._heard and self._runs()

    def _take(self, step, ms):
        """What the station knows by the answer."""
        text = unprintable(self._panel.do(f"answer {ms}").strip('"'))
        self._heard = bool(text)
        if not text:
            return
        # So what was answered before is recorded.
        self._settled, self._pending = self._settled | self._pending, set()
        code, before = step["code"], self._cut.before
        if is_failure(decode(text), code, boot_level(before)):
            self._cut.target = before.get(LEVEL_FILE, "ICT\n")
            return
        self._cut.confirmed = True
        self._recorded = step["items"] if kind_of(step) != "end check" else set()
        if code in STORED:
            path = STORED[code]
            self._promised[path] = step["argument"] or (
                "05" if code == "8A00" else self._panel.read(path))

    def _aim(self, left, end):
        """One request, killed while it is worked on or after its answer."""
        level, draw = boot_level(self._cut.before), self._random
        # First what a seed repeats: how much a choice draws is up to what the panel holds.
        which, answered, moment = draw.randrange(10), draw.randrange(2), draw.random()
        if which == 0:
            level = draw.choice(["ICT", "T1", "BI", "T2", "HMI"])
            step = step_of({"code": "KLV-", "argument": level}) | {"items": set()}
        elif which < 4 and level in ("ICT", "T1"):
            self._new_ids()
            step = draw.choice([step for step in steps_of(self._plans[level], self._values)
                                if step["code"] in STORED])
        elif left:
            step = draw.choice(left)
        else:
            for first in end[:-1]:
                self._ask(first)
            step = end[-1]
        if answered:
            self._ask(step, moment * AFTER)
        else:
            wait = TOUCH if kind_of(step) == "calibration" else ASK + step["wait"] / 1000
            self._kill_in(moment * wait)
            self._ask(step)

    def _work(self, ready):
        """What the level still wants, then its end check."""
        level = boot_level(self._cut.before)
        passed, left, end = passed_items(self._cut.before, level), [], []
        for step in steps_of(self._plans[level], self._values):
            # A straight end check wants the clock compared in the same power-up.
            if kind_of(step) == "end check" or (step["code"] == "8E" and level == "T1"):
                end.append(step)
            elif step["items"] - passed:
                left.append(step)
        if ready or self._random.randrange(2):
            return self._aim(left, end)
        self._kill_in(self._random.random() * WORK)
        for step in left + end:
            if not self._ask(step):
                return

    def _judge(self):
        cut = self._cut
        cut.now = state_of(self._panel)
        revival = revived(self._panel, cut.now)
        faults, level = [verdict(cut, revival)], boot_level(revival.files)
        if level == boot_level(cut.before) and kind_of(self._last) != "forced change":
            passed = passed_items(revival.files, level)
            if self._settled - passed:
                faults.append(f"answered, followed by another answer, and not recorded: "
                              f"{sorted(self._settled - passed)}")
            self.unrecorded += len((self._recorded | self._pending) - passed)
        faults += [f'{path} reads "{revival.files.get(path, "")}" instead of "{text}"'
                   for path, text in self._promised.items() if revival.files.get(path) != text]
        return [fault for fault in faults if fault]

    def live(self, draws):
        """One power-up, and what is wrong afterwards. `draws`: its own random numbers, so that
        nothing of the lives before decides on its moments."""
        self._random = draws
        # Now and then all items are passed as if by hand, so that end checks come often.
        ready = self._random.randrange(4) == 0
        if ready:
            self._panel.do(f"passed {boot_level(state_of(self._panel))}")
        before = state_of(self._panel)
        self._cut = Cut(before, before, before.get(LEVEL_FILE, "ICT\n"))
        self._last, self._heard, self._armed = step_of({}), False, False
        # Items by their last answer: of the last one, before one that is due, before one that came.
        self._recorded, self._pending, self._settled = set(), set(), set()
        self._panel.do("on")
        stat = open(f"/proc/{self._panel.do('pid')}/stat", encoding="latin-1").read()
        self._first = int(stat.rpartition(")")[2].split()[1])
        if self._random.randrange(8) == 0:
            self._kill_in(self._random.random() * BOOT)
        if self._panel.do("opens") == "yes" and not self._armed:
            self._work(ready)
        faults = [] if self._armed or self._runs() else ["the agent ended by itself"]
        if not self._armed:
            self._kill_in(0)
        wait_for(lambda: not self._runs(), math.inf)
        self._panel.do("off")
        if self._last["code"] and not self._heard:  # the answer may have left before it died
            self._take(self._last, 0)
        faults += self._judge()
        kind, code = kind_of(self._last), self._last["code"]
        self.kills[kind] += 1
        self.answered[kind] += self._heard
        self.wrong[kind] += bool(faults)
        released = self._panel.read(LEVEL_FILE) == "HMI\n"
        self.passes += released
        self._killed += 1
        if released or self._killed > LONG_PASS:
            self._begin()
        return f'{kind}, "{code}"{" (answered)" * self._heard}: ' \
            f'{"; ".join(faults)}' if faults else ""


class Soak:
    def __init__(self, kills, panels, seed):
        self._kills, self._panels, self._seed = kills, panels, seed
        self._done, self._stop, self._victims = 0, False, []

    def _line(self, number):
        with Panel() as panel:
            victim = Victim(panel)
            self._victims.append(victim)
            for kill in range(number, self._kills, self._panels):
                if self._stop:
                    return
                fault = victim.live(random.Random(f"{self._seed} {kill}"))
                self._done += 1
                if fault:
                    print(f"\rFAIL  panel {number + 1}, kill {kill // self._panels + 1}: {fault}",
                          flush=True)

    def run(self):
        with concurrent.futures.ThreadPoolExecutor(self._panels) as pool:
            lines = [pool.submit(self._line, number) for number in range(self._panels)]
            try:
                while not all(line.done() for line in lines):
                    print(f"\rkill {self._done} of {self._kills} ", end="", file=sys.stderr)
                    time.sleep(1)
            except KeyboardInterrupt:
                print("\nInterrupted: the figures are of the part that was done")
            self._stop = True
        print(f"\r{'':40}\r", end="", file=sys.stderr)
        wrong = self._report()
        for line in lines:
            line.result()  # raises what it raised
        return int(wrong > 0 or self._done < self._kills)

    def _report(self):
        def total(name):
            return sum((getattr(victim, name) for victim in self._victims), collections.Counter())
        kills, answered, wrong = total("kills"), total("answered"), total("wrong")
        print("| Killed during        | Kills | Answered before | Wrong |\n|---|---|---|---|")
        for kind in dict.fromkeys([*KINDS.values(), "item"]):
            print(f"| {kind:20} | {kills[kind]:5} | {answered[kind]:15} | {wrong[kind]:5} |")
        print(f"{self._done} kills (seed {self._seed}), {sum(wrong.values())} wrong; "
              f"{sum(victim.passes for victim in self._victims)} panels reached HMI; "
              f"{sum(victim.unrecorded for victim in self._victims)} items answered but not yet "
              "recorded", flush=True)
        return sum(wrong.values())


def main(words):
    """Started by `bench soak`, which has checked the numbers: kills, panels, seed."""
    return Soak(*map(int, words)).run()
