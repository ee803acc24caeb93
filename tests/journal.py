#!/usr/bin/env python3
"""The order in which the tracer tells of several processes at once is not that of their calls: here
a shell starts its command before the agent's own call has come back, which had to be made twice."""
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "bench"))
from effects import journal, strace

TRACE = """\
2 execve("/agent", ["/agent"], 0x7f /* 16 vars */) = 0
2 clone3({flags=CLONE_VM|CLONE_VFORK, exit_signal=SIGCHLD}, 88) = ? ERESTARTNOINTR (To be restarted)
2 clone3({flags=CLONE_VM|CLONE_VFORK, exit_signal=SIGCHLD}, 88 <unfinished ...>
3 execve("/bin/sh", ["sh", "-c", "archive -w"], 0x7f /* 16 vars */) = 0
3 vfork( <unfinished ...>
4 execve("/usr/local/ict/archive", ["/usr/local/ict/archive", "-w"], 0x7f /* 16 vars */) = 0
3 <... vfork resumed>) = 4
2 <... clone3 resumed>) = 3
2 wait4(3,  <unfinished ...>
4 exit_group(0) = ?
3 wait4(-1, [{WIFEXITED(s) && WEXITSTATUS(s) == 0}], 0, NULL) = 4
3 exit_group(0) = ?
2 <... wait4 resumed>[{WIFEXITED(s) && WEXITSTATUS(s) == 0}], 0, NULL) = 3
"""

reader, told = strace.Reader(), journal.Journal()
for line in TRACE.splitlines():
    for call in reader.calls(line):
        told.add(call)
lines = told.take()
sys.exit(f"told as {lines}" if lines != ["shell archive -w"] else 0)
