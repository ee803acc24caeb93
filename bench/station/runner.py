"""Runs plans over a line and tells the terminal."""
import statistics
import time

from common.bytetext import as_bytes, printable
from common.failure import Failure, Interrupted, text_of_defect
from common.terminal import say, show_status
from station.line import Request
from station.plan import expand
from station.requests import find_command, request_of
from station.verdict import expects_frame, judge
from station.wire import short_request

EXCHANGE_MS = 100  # of one without a wait
BAR = 24  # characters


def median_overhead(steps, records):
    """Milliseconds of what the steps took beyond what is prescribed: those that cover an item and
    need nobody between request and answer."""
    overheads = [record["ms"] - step["wait"] for step, record in zip(steps, records)
                 if step["items"] and not step["during"]]
    return statistics.median(overheads) if overheads else 0


class Runner:
    """Several may live in several threads. `number`: the panel's station number, which its replies
    must carry at burn-in. `label` begins every line where several panels are tested at once.
    `strict`: see judge(). `verbose` shows requests and answers."""

    def __init__(self, line, stand, values, number=0, label="", strict=False, verbose=False):
        self._line, self._stand, self._values = line, stand, values
        self._number, self._label, self._strict, self._verbose = number, label, strict, verbose
        self.asked = False  # the panel was asked, and either answered or let the time pass
        self._heard = False  # it has answered once
        self._dead = ""  # why nothing more is asked of it
        self._begun = 0  # when the step was

    def run(self, plan, report):
        """Fills the report's last level step by step, so that what was done is there when this
        raises, which is a fault whatever it raises: Failure, Interrupted among them, or
        KeyboardInterrupt. Ends before the plan does when the panel or the port turns out to be
        dead: nobody is asked anything about it."""
        level = report.levels[-1]
        level |= {"plan": plan.file, "planHash": plan.hash, "items": plan.items}
        say(f"{self._label}{plan.level} ({plan.file}), {len(plan.steps)} steps")
        self._stand.screens.clear()
        try:
            self._run_steps(plan, level)
        except (Failure, KeyboardInterrupt) as end:
            report.fault(str(end) or str(Interrupted()))
            raise
        except Exception as wrong:
            report.fault(text_of_defect(wrong))
            raise
        finally:
            self._line.tick = None
            show_status("")
            report.take(self._stand.screens)
        if self._dead:
            report.fault(self._dead)
            say(self._label + self._dead, bad=True)

    def _run_steps(self, plan, level):
        records = level["steps"]
        if not self._label:
            self._line.tick = lambda: show_status(self._status(plan.steps, len(records)))
        for step in plan.steps:
            record = self.run_step(step, plan.level)
            show_status("")
            records.append(record)
            level["medianOverheadMs"] = median_overhead(plan.steps, records)
            self._tell(record, f"{len(records):2}/{len(plan.steps)}")
            if self._dead:
                return

    def run_step(self, step, level):
        """One step, as often as the stand wants it again; its record."""
        record, earlier = self._attempt(step, level), []
        while record["faults"] and not self._dead and self._stand.wants_again(
                f"{step['name']}: {'; '.join(record['faults'])}"):
            earlier += record["faults"]
            record = self._attempt(step, level) | {"earlier": list(earlier)}
        return record

    def _status(self, steps, number):
        """Where the run is, and what is left of the waits that the tests prescribe."""
        due = [step["wait"] + EXCHANGE_MS for step in steps]
        spent = min(due[number], 1000 * (time.monotonic() - self._begun))
        done, whole = sum(due[:number]) + spent, sum(due)
        bar = ("#" * int(BAR * done / whole)).ljust(BAR, ".")
        return (f"  step {number + 1} of {len(steps)}  {steps[number]['name'][:30]:30} [{bar}] "
                f"{-int(-(whole - done) // 1000)} s left")

    def _act(self, actions):
        """What went wrong."""
        faults = [(action, self._stand.act(action)) for action in actions]
        return [f"{action}: {fault}" for action, fault in faults if fault]

    def _request(self, step):
        if step["raw"]:
            return as_bytes(step["raw"])
        number = self._number if step["addressed"] else 0
        return request_of(step["code"], expand(step["argument"], self._values), number,
                          self._values.get("model", ""))

    def _attempt(self, step, level):
        self._begun = time.monotonic()
        faults = self._act(step["before"])
        request = Request(self._request(step), step["timeout"], 1 + step["repeats"],
                          expects_frame(step), step["silence"])
        if step["during"]:
            request.during = lambda: faults.extend(self._act(step["during"]))
        answer = self._line.exchange(request)
        verdict = judge(step, answer, self._values, level, self._number, self._strict)
        faults += verdict.faults
        self.asked = self.asked or answer.tries > 0
        self._heard = self._heard or bool(answer.bytes)
        if verdict.unanswered:
            self._dead = self._why_dead(answer, level)
        command = find_command(step["code"])
        if command and command.settle and verdict.reply.payload == command.passed:
            faults += self._act([f"settle {command.settle}"])
        if not self._dead:
            faults += self._act(step["after"])
        return {"items": step["items"], "itemNames": step["itemNames"], "name": step["name"],
                "code": step["code"], "request": printable(request.bytes),
                "reply": printable(answer.bytes), "meaning": verdict.meaning,
                "values": verdict.measured, "ms": answer.ms, "prescribedMs": step["wait"],
                "tries": answer.tries, "passed": not faults, "faults": faults, "earlier": [],
                "advice": verdict.advice if faults else ""}

    def _why_dead(self, answer, level):
        """Why there is no use in going on after a step without an answer; empty if there is."""
        if answer.error:
            return answer.error
        if not self._heard:
            return ("nothing was heard from the panel. Look at the cable and which of the panel's "
                    "ports it is in; the panel's power; whether it is at another level, or already "
                    "had its end check (it then listens again after a restart)")
        if level in find_command("8000").levels:
            silent = not self._line.exchange(Request(short_request(0, "8000"), tries=2)).bytes
        else:
            silent = answer.tries > 1  # at burn-in nothing can be asked that leaves no trace
        return "the panel has stopped answering. Look at its power and at the cable" * silent

    def _tell(self, record, place):
        bad, prescribed = not record["passed"], record["prescribedMs"]
        what = f"{record['request']:28}  {record['reply']:28}  {record['meaning']:44}" \
            if self._verbose else f"{place}  {record['name']:44}"
        say(f"{self._label} {'FAIL' if bad else 'ok  '} {what} {record['ms']:7.1f} ms"
            + f" ({prescribed} of them prescribed)" * (prescribed > 0), bad)
        for fault in record["faults"]:
            say(f"{self._label}      ^ {fault}", bad=True)
        if record["advice"]:
            say(f"{self._label}        look at: {record['advice']}")
