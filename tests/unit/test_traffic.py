"""What a panel tells of its ports must come out as whole messages, with their meaning, and in a
record that is a plan."""
import pathlib
import re
import subprocess
import tempfile
import unittest

from common.files import PLANS

COMMAND = ["/usr/bin/python3", "-B", str(PLANS.parent / "program.py"), "traffic", "--screen"]
# Torn, joined, without a line end and with the other side's turn between; two levels.
EVENTS = r"""2 note fault set ddr:00000100
40 on t1
100 ttyO1 -> 0 :0085
140 ttyO1 -> 0 007B\r\n
160 ttyO1 <- 0 :0085007B\r\n
170 ttyO3 -> 0 KLV-100\xff
180 ttyO1 -> 0 :00850081\r\n
190 ttyO3 <- 0 \\
300 ttyO1 -> 0 :9510FF8000
301 ttyO1 <- 0 ?
1000 ttyO1 -> 0 :0001
1050 ttyO1 -> 0 00FF\r\n:000100FF\r\n
1070 ttyO1 <- 0 !\n
1080 ttyO1 -> 0 :8\r\n
1090 off
1100 on BI
1110 ttyO1 -> 7 :0085007B\r\n
1120 ttyO3 -> 7 :05850076\r\n
1130 ttyO3 <- 7 :00
"""
SHOWN = r"""    0.002  -- fault set ddr:00000100
    0.040  -- power on, level T1
    0.140  ttyO1   -> :0085007B\r\n  DDR memory
    0.160  ttyO1   <- :0085007B\r\n  DDR memory: passed
    0.180  ttyO1   -> :00850081\r\n  DDR memory, refused: check digits should be 7B
    0.190  ttyO3   -> KLV-100\xff
    0.240  ttyO3   <- \\
    0.301  ttyO1   -> :9510FF8000  screen of a given colour
    0.351  ttyO1   <- ?  screen of a given colour ?
    1.050  ttyO1   -> :0001  request, refused: no panel knows this request
    1.050  ttyO1   -> 00FF\r\n  request, refused: no panel knows this request
    1.050  ttyO1   -> :000100FF\r\n  end check of T1
    1.070  ttyO1   <- !\n  end check of T1 !
    1.080  ttyO1   -> :8\r\n  request, refused: deaf since the end check, until the power is cycled
    1.090  -- power off
    1.100  -- power on, level BI
    1.110  ttyO1   -> :0085007B\r\n
    1.120  ttyO3   -> :05850076\r\n  DDR memory, refused: for station 5, here is 7
    1.180  ttyO3   <- :00  damaged
"""
RECORD = r"""{
  "level": "T1",
  "partial": true,
  "steps": [
    {"bytes":":0085007B\r\n","name":"DDR memory","raw":":0085007B\r\n","repeats":0,"timeout":15000},
    {"name":"DDR memory","raw":":00850081\r\n","repeats":0,"silence":true,"timeout":500},
    {"bytes":"?","name":"screen of a given colour","raw":":9510FF8000","repeats":0,"timeout":15000},
    {"name":"unknown request","raw":":0001","repeats":0,"silence":true,"timeout":500},
    {"name":"unknown request","raw":"00FF\r\n","repeats":0,"silence":true,"timeout":500},
    {"bytes":"!\n","name":"end check of T1","raw":":000100FF\r\n","repeats":0,"timeout":15000},
    {"name":"unknown request","raw":":8\r\n","repeats":0,"silence":true,"timeout":500}
  ]
}
"""


class TestTraffic(unittest.TestCase):
    maxDiff = None

    def test_screen_and_record(self):
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "record.json")
            done = subprocess.run(COMMAND + ["--record", str(file)], input=EVENTS.encode(),
                                  stdout=subprocess.PIPE, check=True)
            shown = re.sub(" +\n", "\n", re.sub(" {9,}", "  ", done.stdout.decode()))
            self.assertEqual(shown, SHOWN)
            self.assertEqual(file.read_bytes().decode(), RECORD)

    def test_while_the_panel_is_on(self):
        """A message is shown as soon as it is over, and Ctrl-C is the panel's."""
        with subprocess.Popen(COMMAND, stdin=subprocess.PIPE, stdout=subprocess.PIPE) as program:
            program.stdin.write(b"1 on T1\n2 ttyO4 -> 0 ?\n62 quiet\n")
            program.stdin.flush()
            self.assertTrue(program.stdout.readline().endswith(b"power on, level T1\n"))
            self.assertIn(b" 0.052  ttyO4   -> ?", program.stdout.readline())
            program.send_signal(2)
            program.stdin.write(b"70 ttyO4 <- 0 !")
            program.stdin.close()
            self.assertIn(b" 0.120  ttyO4   <- !", program.stdout.readline())
        self.assertEqual(program.returncode, 0)


if __name__ == "__main__":
    unittest.main()
