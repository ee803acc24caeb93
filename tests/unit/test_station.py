#!/usr/bin/env python3
"""What `bench station` knows of the link, its plans, its verdicts and its reports."""
import contextlib
import datetime
import io
import json
import os
import pathlib
import subprocess
import tempfile
import termios
import threading
import time
import unittest

from common.failure import Failure, Interrupted
from peer import Peer
from station import wire
from station.line import Answer, Line, Request
from station.plan import Plan, actions_of, expand, load_plan, step_of, values_of
from station.report import Report, begin_report, write_report
from station.requests import advice_of, meaning_of, refusal, request_of
from station.runner import Runner
from station.stand import Stand, TerminalStand
from station.verdict import judge

GOOD = ":00800080\r\n"


class Script(Stand):
    """A line with these answers, one a request, and its stand, where nobody is."""
    failure, tick, again = "", None, 0

    def __init__(self, *answers):
        super().__init__()
        self.answers, self.requests, self.actions = list(answers), [], []

    def exchange(self, request):
        self.requests.append((request.bytes, request.tries))
        if request.during:
            request.during()
        return Answer(self.answers.pop(0), 100, 1)

    def act(self, action):
        self.actions.append(action)
        return "nobody there" if action.startswith("ask") else ""

    def wants_again(self, fault):
        self.again -= 1
        return self.again >= 0


class Station(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        said = contextlib.redirect_stdout(io.StringIO())
        said.__enter__()
        self.addCleanup(said.__exit__, None, None, None)

    def check(self, wanted, found, name):
        self.assertTrue(wanted in found if wanted else not found, f"{name}: {found}")

    def test_requests(self):
        """Check digits worked out by hand: 00+81+02 = 83 -> 7D; 05+8A+00 = 8F -> 71;
        00+8D+30+15+14+21+11+05+25 = 142 -> BE; the characters of "000602AB" sum to 1AB -> 55,
        with a "?" in their stead, which takes the place of what is no byte, to 167 -> 99. The hex
        digits in "00GET_TOOL_VER" are 00 and EE -> 12."""
        friday = datetime.datetime(2025, 11, 21, 14, 15, 30)
        sunday = friday + datetime.timedelta(2)
        for wanted, request in (
                (":0081027D\r\n", wire.short_request(0, "8102")),
                (":058A0071\r\n", wire.short_request(5, "8A00")),
                (":6402009A\r\n", wire.short_request(100, "0200")),
                (":008D30151421110525BE\r\n", wire.clock_request("8D", friday)),
                (":008D30151423110025C1\r\n", wire.clock_request("8D", sunday)),
                (":000602AB55\r\n", wire.identity_request("0602", "AB")),
                (":000602?99\r\n", request_of("0602", "\u20ac")),
                (":00GET_TOOL_VER12\r\n", request_of("GET_TOOL_VER")),
                ("KLV-100-03\r\n", request_of("KLV-", "t2", 0, "KLV-100")),
                ("KLV-100-00\r\n", request_of("KLV-", "HMI", 0, "KLV-100"))):
            self.assertEqual(wanted, request)
        later = request_of("8D", str(2 * 365 * 86400))
        self.assertGreater(later[17:19], f"{datetime.datetime.now():%y}")
        values = values_of({"station": 5, "semiId": "0S"})  # as production.json gives them
        self.assertEqual("5 0S", expand("${station} ${semiId}", values))

    def test_refusals(self):
        """What a panel does not answer must be told from what it does."""
        for request, level, why in (
                (":0081027D\r\n", "T1", ""), (":0081027E\r\n", "T1", "should be 7D"),
                (":0081027D", "T1", "no line end"), (":0081027D\r\n", "BI", "not at level BI"),
                (":05850076\r\n", "BI", "for station 5, here is 0"), (":058A0071\r\n", "T1", ""),
                (":008D30151421110525BE\r\n", "T1", ""), (":000602AB55\r\n", "ICT", ""),
                (":000602AB54\r\n", "ICT", "should be 55"), (":9510FF8000", "T2", ""),
                ("KLV-100-02\r\n", "BI", ""), ("GET_TOOL_VER\r\n", "ICT", "no panel knows"),
                (":xx85007B\r\n", "BI", ""), ("\xff:", "ICT", "no panel knows")):
            self.check(why, refusal(request, level), request)

    def test_meanings(self):
        for payload, code, wanted in (
                ("9FF1", "9011", "no touched position 1"), ("85F0", "8500", "failed"),
                ("95EF", "9502", "LCM pattern 17 of 20 failed"), ("8500", "8000", "foreign"),
                ("\x1b[2J!\n", "AB00", r"panel model \x1b[2J!"),
                ("07011\x1b[2J", "0701", r"machine ID 1\x1b[2J")):
            self.check(wanted, meaning_of(payload, code), payload)
        self.check("passes 8102 only", advice_of("81F2", "8102"), "advice")

    def test_bad_lines(self):
        now = ((0, GOOD),)
        for name, first, second, framed, payload, tries in (
                ("late", ((.2, GOOD),), (), True, "8000", 1),
                ("slow", [(.02, byte) for byte in GOOD], (), True, "8000", 1),
                ("gap in the frame", ((0, GOOD[:5]), (.15, GOOD[5:])), (), True, "8000", 1),
                ("noise, then the frame", ((0, "\xff\xfe\xfd"), (.15, GOOD)), (), True, "8000", 1),
                ("silent once", (), now, True, "8000", 2),
                ("damaged once", ((0, ":00800081\r\n"),), now, True, "8000", 2),
                ("noise only, then a frame", ((0, "abcdef"),), now, True, "8000", 2),
                ("silent for good", (), (), True, "", 2),
                ("no line end", ((0, "GOTO_FAIL"),), (), False, "GOTO_FAIL", 1),
                ("frame without line feed", ((0, ":000328D5\r"),), (), True, "0328", 1)):
            patience = 20000 if tries == 1 else 1000  # short only where nothing comes
            with Peer(lambda number, _: (first, second)[number]) as peer, \
                    Line(peer.path, "ICT") as line:
                answer = line.exchange(Request(GOOD, patience, 2, framed))
            self.assertEqual((payload, tries),
                             (wire.decode(answer.bytes).payload, answer.tries), name)
            self.assertTrue(patience > answer.ms if answer.bytes else answer.ms >= patience, name)

    def test_ports(self):
        link = self.folder / "link"
        with Peer(lambda *_: ()) as peer:
            link.symlink_to(peer.path)
            for level, handshake in (("BI", 0), ("ICT", termios.CRTSCTS)):
                with Line(peer.path, level) as line:
                    self.assertRaisesRegex(Failure, "link: busy", Line, str(link), level)
                    self.assertEqual(handshake, termios.tcgetattr(peer.slave)[2] & termios.CRTSCTS)
                    silence = line.exchange(Request(GOOD, 100, 3, silence=True))
                    self.assertEqual(("", 1), (silence.bytes, silence.tries))

    def test_late_answer_is_not_taken_for_the_next(self):
        """A request repeated because its answer was late brings two answers."""
        answers = ((), ((0, ":0081027D\r\n"), (.05, ":0081027D\r\n")), ((.2, ":00850E6D\r\n"),))
        with Peer(lambda number, _: answers[number]) as peer, Line(peer.path, "ICT") as line:
            self.assertEqual(2, line.exchange(Request(":0081027D\r\n", 1000, 2)).tries)
            self.assertIn("850E", line.exchange(Request(":0085007B\r\n", 20000)).bytes)

    def test_plan_problems(self):
        covered = '{"item": [2, 3, 4, 5, 6], "code": "8500"}, '
        own, text = covered + '{"item": 1, "code": "9504", ', covered + '{"item": 1, "text": '
        for steps, problem in (
                (own + '"after": ["look red"], "battery": [1, 1]}', ""),
                (covered + '\n{"item": 1, "name": "?", "code": "9999"}',
                 'p.json, step 2 "?": no panel knows the code'),
                (covered + '\n{"item": 1, "name": "RTC", "code": "8C00"}',
                 'p.json, step 2 "RTC": the code 8C00 is not allowed at level BI'),
                (covered + '{"item": 1, "code": "8C00", "silence": true}', ""),
                (covered + '{"code": "9504"}', 'no step covers item "1. LCD Color Test"'),
                (covered + '{"item": [1, 7], "code": "9504"}', "has no item 7"),
                (own + '"timout": 5}', 'unknown key "timout"'),
                (own + '"before": ["kick it"]}', 'unknown action "kick it"'),
                (own + '"before": ["look pink"]}', 'unknown action "look pink"'),
                (own + '"timeout": "10000"}', '"timeout" must be a whole number'),
                (own + '"repeats": -5}', '"repeats" must be'),
                (covered + '{"item": [1, 3], "code": "8800", "battery": [3600, 2950]}',
                 "the smaller first"),
                (covered + r'{"item": 1, "raw": "x\r\n", "bytes": "", "name": "a	tab"}', ""),
                (own + '"reply": "${colour}"}', "what ${colour} is"),
                (covered + '{"code": "KLV-", "argument": "bi"}', "what ${model} is"),
                (covered + '{"code": "KLV-", "argument": "${to}"}',
                 'to ict, t1, bi, t2 or hmi, not to "BU"'),
                (covered + '{"code": "8D", "argument": "x", "silence": true}', 'not by "x"'),
                (text + '"(("}', "not a regular expression: (("),
                (text + '"[[:digit:]]"}', "not a regular"),  # others see a class in it
                (covered + "\n\n{", "p.json:4:")):
            file = self.folder / "p.json"
            file.write_text('{"level": "BI",\n"steps": [' + steps + "]}")
            self.check(problem, "\n".join(load_plan(file, {"to": "BU"}).problems), steps)

    def test_verdicts(self):
        passed, battery = ":05850076\r\n", {"code": "8800", "battery": [2950, 3600]}
        for row, answer, fault in (
                ({}, passed, ""),
                ({}, ":0585F086\r\n", "DDR memory: failed (85F0)"),
                ({"reply": "85F0"}, passed,
                 "DDR memory: passed (8500), expected DDR memory: failed (85F0)"),
                ({}, ":058500", "damaged answer: :058500"),
                ({"reply": "810E"}, ":05810E6c\r\n", "damaged"),
                ({}, ":06850075\r\n", "as station 6 instead of 5"),
                ({"raw": ":0585007B\r\n"}, ":06850075\r\n", ""),
                ({}, "x" + passed, "bytes before"),
                ({"timeout": 1500}, "", "no answer (asked 1 times, for 1.5 s each)"),
                ({"text": r"${model}\n"}, "KLV-100.x\n", ""),
                ({"text": "${model}"}, "KLV-100.x\0\n", "expected KLV-100.x"),
                ({"text": r"${model}\r\n"}, "KLV-100-x\n", "KLV-100-x, expected KLV-100.x"),
                ({"text": r"\d+"}, "(1)\n", "expected another form"),
                ({"text": r"\d+", "expected": "1 ${model}"}, "x", "expected 1 KLV-100.x"),
                (battery, ":05029564\r", ""),
                (battery, ":05029465\r", "2.94 V, expected 2.95 V to 3.60 V"),
                (battery, ":05036197\r", "3.61 V, expected 2.95 V to 3.60 V"),
                ({"bytes": "a\xff\n"}, "a\xff\n", ""),
                ({"bytes": "a\n"}, "a\xff\n", r"expected a\n"),
                ({"silence": True}, "", ""),
                ({"silence": True}, passed, "no answer is due")):
            verdict = judge(step_of({"code": "8500"} | row), Answer(answer, 1, 1),
                            {"model": "KLV-100.x"}, "BI", 5, True)
            self.check(fault, " ".join(verdict.faults), (row, answer))
        self.assertEqual(9, step_of({"silence": True, "timeout": 9})["wait"])
        again = judge(step_of({"code": "8500"}), Answer(":0085007B\r\n", 1, 2), {}, "T1", 5, True)
        self.assertEqual(["answered only at request 2"], again.faults)

    def test_values(self):
        for code, level, answer, wanted in (
                ("8801", "BI", ":05029465\r", [2940, None]),
                ("9012", "T1", "( 751,  49)\n", [751, None, 49, None]),
                ("9022", "T1", "(751, 49)\n", [1, 10, -1, 10]),
                ("9025", "T2", "(389, 251)\n", [-11, 11, 11, 11])):
            values = judge(step_of({"code": code}), Answer(answer), {}, level, 5, False).measured
            self.assertEqual(wanted, [value.get(key) for value in values
                                      for key in ("value", "max")])

    def run_steps(self, script, *rows):
        steps = [step_of({"name": "<a\ud800>"} | row, ["1. A"]) for row in rows]
        begun = datetime.datetime(2025, 1, 1, tzinfo=datetime.timezone.utc)
        report = self.report = Report("../port/1", {"semiId": "S" * 90, "model": "M"}, begun=begun)
        report.begin("T1")
        Runner(script, script, {}, 5).run(Plan("p", level="T1", steps=steps), report)
        report.take({"look": b"PNG"})
        return report

    def test_run_and_its_report(self):
        script = Script(":05850076\r\n", *["ToolVer=7\n"] * 2, ":0085F08B\r\n", "", "")
        script.again = 1
        report = self.run_steps(
            script, {"item": 1, "code": "8500", "addressed": True, "wait": 40, "repeats": 1},
            {"item": 1, "code": "FF01", "text": ".*\n", "during": ["ask me"]},
            {"code": "8500"}, {"item": 1, "code": "8500", "after": ["look red"]})
        # At the end nothing came: whether anybody is there.
        self.assertEqual([(":05850076\r\n", 2), *[(":00FF0100\r\n", 3)] * 2,
                          *[(":0085007B\r\n", 3)] * 2, (GOOD, 2)], script.requests)
        self.assertEqual(["ask me"] * 2, script.actions)
        level = report.levels[0]
        self.assertEqual("", level["steps"][0]["advice"])
        self.assertEqual(80, level["medianOverheadMs"])
        self.assertEqual([[], ["ask me: nobody there"], ["DDR memory: failed (85F0)"]],
                         [step["faults"] for step in level["steps"][:3]])
        self.assertEqual(level["steps"][1]["faults"], level["steps"][1]["earlier"])
        self.assertRegex(level["faults"][0], "has stopped answering")
        base = self.folder / "a"
        begun = begin_report(report, base)
        self.assertEqual("S" * 80, begun.parent.name)
        self.assertNotEqual(begun, begin_report(report, base))
        report.given["machineId"], report.ended = "../ID 1", report.begun  # known only now
        place = write_report(report, base, begun)
        self.assertEqual(base / "ID-1", place.parent)
        for name, text in (("report.html", '"passed":false'), ("report.html", r"\u003ca?>"),
                           ("report.html", "nobody there"), ("report.json", '"passed": false'),
                           ("report.json", '"toolVersion": "7"'), ("t1-look.png", "PNG"),
                           ("report.json", '"begun": "2025-01-01T00:00:00Z"'),
                           ("junit.xml", 'failures="4"')):
            self.assertIn(text, (place / name).read_text(), name)
        schema = pathlib.Path(__file__).parent.parent / "junit.xsd"
        subprocess.run(["xmllint", "--noout", "--schema", schema, place / "junit.xml"], check=True,
                       stderr=subprocess.DEVNULL)
        file = place / "report.json"
        with self.assertRaisesRegex(Failure, "--report"):
            begin_report(report, file / "a")
        for one in (last := write_report(report, file, file / "a" / "b")).iterdir():
            one.unlink()
        last.rmdir()

    def test_unit(self):
        report = Report(given={"model": "M"}, levels=[{"steps": [
            {"code": "AB00", "reply": r"N\n"}, {"code": "0702", "reply": r":000702AB54\r\n"}]}])
        self.assertEqual({"model": "N", "semiId": "AB"}, report.unit())
        report.given["semiId"] = "given"
        self.assertEqual({"model": "N", "semiId": "given"}, report.unit())

    def test_settles_after_release(self):
        """While the panel goes on working; what breaks off then has not passed."""
        script = Script(":000300FD\r\n")
        with self.assertRaises(IndexError):
            self.run_steps(script, {"code": "0300"}, {"code": "8500"})
        self.assertEqual(["settle 15"], script.actions)
        self.assertFalse(self.report.passed)
        stop = threading.Event()
        stand = TerminalStand("p", actions_of(), True, stop)
        self.assertEqual("", stand.act("ask Is it warm?"))
        self.check("virtual panel only", stand.act("fault set a"), "fault")
        stop.set()
        self.assertRaises(Interrupted, stand.act, "settle 15")

    def test_interrupted(self):
        plan = self.folder / "p.json"
        plan.write_text('{"level": "T1", "partial": true, "steps": [{"code": "8000"}, '
                        '{"code": "8500", "timeout": 60000}]}')
        with Peer(lambda number, request: ((0, request),) * (number == 0)) as peer, \
                subprocess.Popen([os.environ["BENCH"], "station", "--port", peer.path, "--plan",
                                  plan, "--report", self.folder / "out"],
                                 stdout=subprocess.DEVNULL) as bench:
            while peer.requests < 2 and bench.poll() is None:
                time.sleep(0.01)
            bench.terminate()
            self.assertEqual(1, bench.wait(60))
        record = json.loads(next(self.folder.glob("out/*/*/report.json")).read_text())
        self.assertEqual((["T1: interrupted"], "failed"), (record["faults"], record["verdict"]))


if __name__ == "__main__":
    unittest.main()
