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
import time
import unittest

from common.failure import Failure
from peer import Peer
from station import wire
from station.line import Line, Request
from station.plan import add_to, expand, load_plan, step_of
from station.report import Report, begin_report, write_report
from station.requests import meaning_of, refusal, request_of
from station.runner import Runner
from station.stand import Stand

GOOD = ":00800080\r\n"
HERE = pathlib.Path(__file__).parent


class SilentStand(Stand):
    again, settled = 0, False

    def act(self, action):
        self.settled = self.settled or action.startswith("settle ")
        return "nobody there" if action.startswith("ask") else ""

    def wants_again(self, fault):
        self.again -= 1
        return self.again >= 0


def once(*pieces):
    """A peer that answers its first request so, and no other."""
    return Peer(lambda number, _: pieces if number == 0 else ())


class Station(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        said = contextlib.redirect_stdout(io.StringIO())
        said.__enter__()
        self.addCleanup(said.__exit__, None, None, None)

    def test_requests(self):
        """Check digits worked out by hand: 00+81+02 = 83 -> 7D; 05+8A+00 = 8F -> 71;
        00+8D+30+15+14+21+11+05+25 = 142 -> BE; the characters of "000602AB" sum to 1AB -> 55,
        with a "?" in their stead, which takes the place of what is no byte, to 167 -> 99. The hex
        digits in "00GET_TOOL_VER" are 00 and EE -> 12."""
        friday = datetime.datetime(2025, 11, 21, 14, 15, 30)
        for wanted, request in (
                (":0081027D\r\n", wire.short_request(0, "8102")),
                (":058A0071\r\n", wire.short_request(5, "8A00")),
                (":6402009A\r\n", wire.short_request(100, "0200")),
                (":008D30151421110525BE\r\n", wire.clock_request("8D", friday)),
                (":000602AB55\r\n", wire.identity_request("0602", "AB")),
                (":000602?99\r\n", request_of("0602", "\u20ac")),
                (":00GET_TOOL_VER12\r\n", request_of("GET_TOOL_VER")),
                ("KLV-100-02\r\n", request_of("KLV-", "bi", 0, "KLV-100")),
                ("KLV-100-00\r\n", request_of("KLV-", "HMI", 0, "KLV-100"))):
            self.assertEqual(wanted, request)
        values = {}
        add_to(values, {"station": 5, "semiId": "0S"})  # as production.json gives them
        self.assertEqual("5 0S", expand("${station} ${semiId}", values))

    def test_refusals(self):
        """What a panel does not answer must be told from what it does."""
        for request, level, why in (
                (":0081027D\r\n", "T1", ""),
                (":0081027E\r\n", "T1", "check digits should be 7D"),
                (":0081027D", "T1", "no line end"),
                (":0081027D\r\n", "BI", "not at level BI"),
                (":05850076\r\n", "BI", "for station 5, here is 0"),
                (":058A0071\r\n", "T1", ""),
                (":008D30151421110525BE\r\n", "T1", ""),
                (":000602AB55\r\n", "ICT", ""),
                (":000602AB54\r\n", "ICT", "check digits should be 55"),
                (":9510FF8000", "T2", ""),
                ("KLV-100-02\r\n", "BI", ""),
                (":zz81022D\r\n", "T1", "check digits should be 7D"),
                ("GET_TOOL_VER\r\n", "ICT", "no panel knows"),
                ("\xff:", "ICT", "no panel knows")):
            found = refusal(request, level)
            self.assertTrue(found.startswith(why) if why else not found, f"{request!r}: {found}")

    def test_meanings(self):
        for payload, code, wanted in (
                ("9FF1", "9011", "no touched position 1"),
                ("95EF", "9502", "LCM pattern 17 of 20 failed"),
                ("85F0", "8500", "failed"),
                ("8500", "8000", "foreign"),
                ("\x1b[2J!\n", "AB00", r"panel model \x1b[2J!"),
                ("07011\x1b[2J", "0701", r"machine ID 1\x1b[2J")):
            self.assertIn(wanted, meaning_of(payload, code))

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
            request = Request(wire.short_request(0, "8000"), patience, 2, framed)
            with self.subTest(name), Peer(lambda number, _: (first, second)[number]) as peer, \
                    Line(peer.path, "ICT") as line:
                answer = line.exchange(request)
                self.assertEqual(payload, wire.decode(answer.bytes).payload)
                self.assertEqual(tries, answer.tries)
                self.assertTrue(answer.bytes or answer.ms >= patience)

    def test_port_is_its_own(self):
        link = self.folder / "link"
        with once() as peer, Line(peer.path, "ICT"):
            link.symlink_to(peer.path)
            with self.assertRaisesRegex(Failure, "link: busy"):
                Line(str(link), "ICT")

    def test_late_answer_is_not_taken_for_the_next(self):
        """A request repeated because its answer was late brings two answers; the second must not
        stand for the next request."""
        answers = ((), ((0, ":0081027D\r\n"), (.05, ":0081027D\r\n")), ((.01, ":00850E6D\r\n"),))
        with Peer(lambda number, _: answers[number]) as peer, Line(peer.path, "ICT") as line:
            self.assertEqual(2, line.exchange(Request(":0081027D\r\n", 1000, 2)).tries)
            answer = line.exchange(Request(":0085007B\r\n", 20000, 1))
        self.assertEqual("850E", wire.decode(answer.bytes).payload)

    def test_plan_problems(self):
        covered = '{"item": [2, 3, 4, 5, 6], "code": "8500"}, '
        own = covered + '{"item": 1, "code": "9504", '
        for name, steps, problem in (
                ("sound", own + '"after": ["look red"]}', ""),
                ("unknown code", covered + '\n{"item": 1, "name": "?", "code": "9999"}',
                 'p.json, step 2 "?": no panel knows the code'),
                ("not at this level", covered + '\n{"item": 1, "name": "RTC", "code": "8C00"}',
                 'p.json, step 2 "RTC": the code 8C00 is not allowed at level BI'),
                ("silence may be asked anywhere",
                 covered + '{"item": 1, "code": "8C00", "silence": true}', ""),
                ("item left out", covered + '{"code": "9504"}',
                 'no step covers item "1. LCD Color Test"'),
                ("no such item", covered + '{"item": [1, 7], "code": "9504"}', "has no item 7"),
                ("mistyped key", own + '"timout": 5}', 'unknown key "timout"'),
                ("unknown action", own + '"before": ["kick it"]}', 'unknown action "kick it"'),
                ("impossible action", own + '"before": ["look pink"]}',
                 'unknown action "look pink"'),
                ("text for a number", own + '"timeout": "10000"}',
                 '"timeout" must be a whole number'),
                ("negative number", own + '"repeats": -5}', '"repeats" must be'),
                ("battery the wrong way round",
                 covered + '{"item": [1, 3], "code": "8800", "battery": [3600, 2950]}',
                 "the smaller first"),
                ("raw bytes need no code",
                 covered + r'{"item": 1, "raw": "x\r\n", "bytes": ""}', ""),
                ("unknown value", own + '"reply": "${colour}"}', "what ${colour} is"),
                ("forced change to nowhere", covered + '{"code": "KLV-", "argument": "${to}"}',
                 'to ict, t1, bi, t2 or hmi, not to "BU"'),
                ("clock off by what", covered + '{"code": "8D", "argument": "x", "silence": true}',
                 'not by "x"'),
                ("no pattern", own + '"text": "(("}', "not a regular expression: (("),
                ("pattern of two meanings", own + '"text": "[[:digit:]]"}', "not a regular"),
                ("a tab in a text", own + '"name": "a\tb"}', ""),
                ("broken JSON", covered + "\n\n{", "p.json:4:")):
            file = self.folder / "p.json"
            file.write_text('{"level": "BI",\n"steps": [' + steps + "]}")
            found = "\n".join(load_plan(file, {"to": "BU"}).problems)
            self.assertTrue(problem in found if problem else not found, f"{name}: {found}")

    def test_verdicts(self):
        passed, battery = ":05850076\r\n", [2950, 3600]
        for name, answer, key, wanted, fault in (
                ("as expected", passed, "reply", "8500", ""),
                ("another code", ":0585F086\r\n", "reply", "8500", "DDR memory: failed (85F0)"),
                ("a pass that is none", passed, "reply", "85F0",
                 "DDR memory: passed (8500), expected DDR memory: failed (85F0)"),
                ("half", ":058500", "reply", "8500", "damaged answer: :058500"),
                ("lower-case check digits", ":05810E6c\r\n", "reply", "810E", "damaged"),
                ("another station", ":06850075\r\n", "reply", "8500", "as station 6 instead of 5"),
                ("noise before", "x" + passed, "reply", "8500", "bytes before"),
                ("nothing", "", "reply", "8500", "no answer (asked 1 times"),
                ("text with a value", "KLV-100.x\n", "text", r"${model}\n", ""),
                ("text with a zero byte", "KLV-100.x\0\n", "text", "${model}",
                 "expected KLV-100.x"),
                ("a value is no pattern", "KLV-100-x\n", "text", r"${model}\r\n",
                 "KLV-100-x, expected KLV-100.x"),
                ("no pattern for people", "(1)\n", "text", r"\d+", "expected another form"),
                ("battery enough", ":05029564\r", "battery", battery, ""),
                ("battery low", ":05029465\r", "battery", battery,
                 "2.94 V, expected 2.95 V to 3.60 V"),
                ("recorded bytes", "a\xff\n", "bytes", "a\xff\n", ""),
                ("other bytes", "a\xff\n", "bytes", "a\n", r"expected a\n"),
                ("due silence", "", "silence", True, ""),
                ("broken silence", passed, "silence", True, "no answer is due")):
            patience = 20000 if answer and "damaged" not in fault else 2000
            step = step_of({"code": "8800" if key == "battery" else "8500", "repeats": 0,
                            "timeout": patience, key: wanted})
            with once((0, answer)) as peer, Line(peer.path, "BI") as line:
                runner = Runner(line, SilentStand(), {"model": "KLV-100.x"}, 5, strict=True)
                faults = " ".join(runner.run_step(step, "BI")["faults"])
            self.assertTrue(fault in faults if fault else not faults, f"{name}: {faults}")
            self.assertEqual(1, peer.requests)

    def test_steps(self):
        """One failed operator step must turn every verdict of the report, whatever the link
        says."""
        report, stand = Report("../port/1"), SilentStand()
        report.begin("T1")
        with Peer(lambda _, request: ((0, request),)) as peer, Line(peer.path, "ICT") as line:
            runner = Runner(line, stand, {})
            step = step_of({"name": "<DDR>", "code": "8500", "item": 1}, ["7. DDR Test"])
            report.levels[0]["steps"] = [runner.run_step(step, "T1")]
            self.assertTrue(report.passed)
            step["after"] = ["ask Is it warm?\x1b"]
            report.levels[0]["steps"] = [runner.run_step(step, "T1")]
            self.assertFalse(report.passed)
            stand.again = 1  # and what failed before stays known
            tried = runner.run_step(step_of({"code": "8500", "reply": "85F0"}), "T1")
            self.assertFalse(tried["passed"])
            self.assertEqual(tried["faults"], tried["earlier"])
            self.assertFalse(stand.settled)
            runner.run_step(step_of({"code": "0300"}), "T2")  # after which the panel goes on
            self.assertTrue(stand.settled)
        self.check_reports(report)

    def check_reports(self, report):
        base = self.folder / "a"
        begun = begin_report(report, base)
        self.assertEqual(base / "port-1", begun.parent)
        self.assertNotEqual(begun, begin_report(report, base))
        report.given["machineId"] = "../ID 1"  # known only now
        place = write_report(report, base, begun)
        self.assertEqual(base / "ID-1", place.parent)
        for name, text in (("report.html", '"passed":false'), ("report.html", r"\u003cDDR>"),
                           ("report.html", "nobody there"), ("report.json", '"passed": false'),
                           ("junit.xml", 'failures="1"')):
            self.assertIn(text, (place / name).read_text(), name)
        self.assertEqual("<DDR>", json.loads((place / "report.json").read_text())
                         ["levels"][0]["steps"][0]["name"])
        subprocess.run(["xmllint", "--noout", "--schema", HERE.parent / "junit.xsd",
                        place / "junit.xml"], check=True, stderr=subprocess.DEVNULL)
        file = self.folder / "file"
        file.touch()
        with self.assertRaisesRegex(Failure, "--report"):
            begin_report(report, file / "a")
        last = write_report(report, file, file / "a" / "b")
        for one in last.iterdir():
            one.unlink()
        last.rmdir()

    def test_what_breaks_off_has_not_passed(self):
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
        self.assertEqual(["T1: interrupted"], record["faults"])
        self.assertEqual("failed", record["verdict"])


if __name__ == "__main__":
    unittest.main()
