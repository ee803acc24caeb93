"""The judge of a panel's files must accept what a right panel writes and find every single wrong
byte."""
import pathlib
import tempfile
import unittest

from station.panelfiles import PanelFiles

BEFORE = r"""[/logs/Resume.txt new]
Before\n
[/logs/Factory.txt new records 100]
${any}
"""
STATE = r"""# What is left of a burn-in panel
[/logs/*.txt]
Factory.txt
Flags.txt
Level.txt
Resume.txt

[/logs/Level.txt]
BI \n

[/logs/Flags.txt records 64]
2. DDR Test: 1\0\r\n

[/logs/Resume.txt new]
Received\n
${old}\n
1: ${id}\0*3\n

[/logs/Factory.txt new records 100]
${old}\nBoot at ${id}\n\n\0
"""
RIGHT = {
    "Level.txt": b"BI \n",
    "Flags.txt": b"2. DDR Test: 1".ljust(62, b"\0") + b"\r\n",
    "Resume.txt": b"Before\nReceived\nThu Jan  1 00:00:07 UTC 2015\n1: B\0\0\0\n",
    "Factory.txt": b"2015-01-01 00:00:07\nBefore\n\n".ljust(100, b"\0")
                   + b"2015-01-01 00:00:08\nBoot at B\n\n".ljust(100, b"\0")}
LONGER, REMOVED = "one byte too many", "removed"
DAMAGES = {  # a file and which of its bytes is wrong
    "level": ("Level.txt", 2),
    "item result": ("Flags.txt", 13),
    "padding of a record": ("Flags.txt", 61),
    "line end of a record": ("Flags.txt", 62),
    "line": ("Resume.txt", 9),
    "earlier part": ("Resume.txt", 1),
    "no date": ("Resume.txt", 16 + 13),
    "zeros in a log": ("Resume.txt", 50),
    "log without date": ("Factory.txt", 104),
    "another value than before": ("Factory.txt", 128),
    "log padding": ("Factory.txt", 199),
    "log cut": ("Factory.txt", REMOVED),
    "log record too long": ("Factory.txt", LONGER),
    "flags missing": ("Flags.txt", REMOVED),
    "level file too long": ("Level.txt", LONGER),
    "what does not belong there": ("Another.txt", LONGER)}


class Judge(unittest.TestCase):
    def setUp(self):
        place = tempfile.TemporaryDirectory()
        self.addCleanup(place.cleanup)
        self.folder = pathlib.Path(place.name)
        (self.folder / "logs").mkdir()
        (self.folder / "before").write_text(BEFORE)
        (self.folder / "state").write_text(STATE)

    def put(self, files):
        for name, content in files.items():
            (self.folder / "logs" / name).write_bytes(content)

    def judge(self, damaged="", byte=None):
        """What it finds in right files, of which one was damaged after a first comparison."""
        judge = PanelFiles(self.folder)
        self.put({"Resume.txt": RIGHT["Resume.txt"][:7], "Factory.txt": RIGHT["Factory.txt"][:100]})
        self.assertEqual(judge.differences(self.folder / "before", 0), [])
        self.put(RIGHT)
        content = bytearray(RIGHT.get(damaged, b""))
        if byte == REMOVED:
            (self.folder / "logs" / damaged).unlink()
        elif byte == LONGER:
            self.put({damaged: content + b"x"})
        elif damaged:
            content[byte] ^= 1
            self.put({damaged: content})
        return judge.differences(self.folder / "state", 0)

    def test_right_files_pass(self):
        self.assertEqual(self.judge(), [])

    def test_each_damage_is_found(self):
        for name, (damaged, byte) in DAMAGES.items():
            with self.subTest(name):
                wanted = "/logs/*" if damaged == "Another.txt" else damaged
                self.assertIn(wanted, "\n".join(self.judge(damaged, byte)))
                (self.folder / "logs/Another.txt").unlink(missing_ok=True)


if __name__ == "__main__":
    unittest.main()
