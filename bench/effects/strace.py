"""Reads what strace writes of the agent and of the programs that it starts, as it grows. Bytes are
texts of Latin-1 throughout."""
import collections
import dataclasses
import re

FILE = "/run/bench/trace"  # on the panel
KINDS = {name: kind for kind, names in {
    "open": "open openat creat", "close": "close", "read": "read pread64",
    "write": "write pwrite64 writev", "truncate": "ftruncate truncate",
    "rename": "rename renameat renameat2", "remove": "unlink unlinkat rmdir",
    "folder": "mkdir mkdirat", "link": "link linkat symlink symlinkat", "sync": "sync syncfs",
    "sync_file": "fsync fdatasync", "control": "ioctl fcntl", "start": "clone clone3 fork vfork",
    "program": "execve", "reap": "wait4 waitid", "pause": "nanosleep clock_nanosleep",
    "poll": "poll", "exit": "exit_group", "seek": "lseek", "copy": "dup dup2 dup3",
    "refused": "copy_file_range sendfile",
}.items() for name in names.split()}
# Syncs are recorded and left out: they would flush this machine's disks. Copies inside the kernel
# would hide their bytes: refused, they are read and written instead. Only what is traced, too, is
# left out or refused. What the library is for: preload.cpp.
COMMAND = (
    "strace -D -f -qq --seccomp-bpf -y -xx -s 32768 -a1 -e abbrev=execve -e signal=none -e trace="
    + ",".join(sorted(KINDS)) + " -e inject=sync,fsync,fdatasync,syncfs:retval=0"
    " -e inject=copy_file_range,sendfile:error=EINVAL -o " + FILE +
    " -E LD_PRELOAD=/run/bench/preload.so:/usr/$LIB/faketime/libfaketimeMT.so.1").split()

TOKEN = re.compile(r'"[^"]*"|[(\[{]|[)\]}]|,|[^"()\[\]{},]+')


@dataclasses.dataclass
class Call:
    """One call to the kernel by the agent or by a program that it started."""
    thread: int  # as the panel numbers it
    process: int  # the same in a process's first thread
    name: str
    kind: str
    args: list  # as strace prints them
    result: int = 0  # start: the new process; reap: the child that was waited for
    error: str = ""  # as "ENOENT"
    fd: int = -1
    # Absolute, as named when it was opened; pipes and the like as "pipe:[1]". A relative name stays
    # so where the call does not say the folder. `target`: a file's new name, what a link leads to.
    path: str = ""
    target: str = ""
    # Place in the file of what is read or written, -1: at its end, or in what has no places;
    # truncate: the new length; pause: nanoseconds asked for.
    at: int = -1
    data: str = ""  # read or written; control: the structure, where it is known
    words: tuple = ()  # program: its arguments, its own name first
    # program: the thread of the tracing's first program that started it, 0 if another did.
    # `branch`: that thread's child, which it is itself or which started it and stayed no program.
    starter: int = 0
    branch: int = 0

    @property
    def ok(self):
        return self.result >= 0

    @property
    def text(self):  # of all arguments
        return ",".join(self.args)


@dataclasses.dataclass
class File:
    path: str
    append: bool = False
    position: int = 0


@dataclasses.dataclass
class Process:
    number: int
    starter: int = 0
    branch: int = 0
    root: bool = False  # the first of all
    ran: bool = False  # has become a program
    files: dict = dataclasses.field(default_factory=dict)  # by descriptor: File, close-on-exec


def decoded(text):
    return re.sub(r"(\\x..)+", lambda match: bytes.fromhex(
        match[0].replace("\\x", "")).decode("latin-1"), text)


def quoted(arg):
    """The texts between quotes, none of which holds one."""
    return decoded("".join(re.findall('"([^"]*)"', arg)))


def annotated(arg):
    """The path of "6</dev/ttyO1>"."""
    match = re.search("<(.*)>", arg)
    return decoded(match[1]) if match else ""


def number(text, after="^"):
    match = re.search(after + r"(-?\d+)", text)
    return int(match[1]) if match else 0


def arguments(text, start):
    """The list of arguments that begins at `start`, and where it ends; none if it does not."""
    args, depth = [], 0
    for token in TOKEN.finditer(text, start):
        mark = token[0]
        depth += (mark in "([{") - (mark in ")]}")
        if depth < 0 or (depth == 0 and mark == ","):
            args.append(text[start:token.start()].strip())
            start = token.end()
        if depth < 0:
            return args, start
    return None, 0


class Reader:
    """The calls in a trace, in the order in which they ended; follows descriptors through threads,
    forks and copies."""

    def __init__(self):
        self._threads = {}  # the Process of each
        self._unfinished = {}  # the first half of a call, by thread
        self._early = collections.defaultdict(list)  # lines of threads that are not known yet
        self._rest = ""
        self._structure = ""  # what the next ioctl is given

    def follow(self, file):
        """What has been added to `file` since the last time."""
        for part in iter(file.readline, ""):
            self._rest += part
            if part.endswith("\n"):
                line, self._rest = self._rest.rstrip(), ""
                yield from self.calls(line)

    def calls(self, line):
        """The calls that have ended with this line. What a new thread does waits until the call
        that made it has told its number: before that nobody knows whose it is, for several may be
        making one."""
        thread, line = line.split(None, 1)
        thread = int(thread)
        if not self._threads:
            self._threads[thread] = Process(thread, root=True)
        if thread not in self._threads:
            self._early[thread].append(f"{thread} {line}")
            return
        call = self._parse(thread, line)
        if not call:
            return
        getattr(self, "_" + call.kind, self._descriptor)(call, self._threads[thread])
        yield call
        if call.kind == "start":
            for early in self._early.pop(call.result, ()):
                yield from self.calls(early)

    def _parse(self, thread, line):
        if line.endswith("<unfinished ...>"):
            self._unfinished[thread] = line[:-16].rstrip()
            return None
        if line.startswith("<... "):
            line = self._unfinished.pop(thread, "") + line.split(">", 1)[1]
        name = line[:line.find("(")]
        args, end = arguments(line, len(name) + 1)
        if name not in KINDS or args is None:
            return None
        call = Call(thread, self._threads[thread].number, name, KINDS[name], args)
        result = line[end:].strip("= ")
        call.result = -1 if result.startswith("?") else number(result)  # "?": to be made again
        if not call.ok:
            call.error = (result.split(" ") + [""])[1]
        if call.kind == "open" and call.ok:
            call.target = annotated(result)
        return call

    def _start(self, call, maker):
        if call.result <= 0:
            return
        if "CLONE_THREAD" in call.text:
            self._threads[call.result] = maker
            return
        self._threads[call.result] = Process(
            call.result, call.thread if maker.root else 0 if maker.ran else maker.starter,
            call.result if maker.root else maker.branch, files=dict(maker.files))

    def _program(self, call, process):
        call.path = quoted(call.args[0])
        call.words = tuple(map(quoted, arguments(call.args[1], 1)[0] or ()))
        if not process.ran and not process.root:
            call.starter, call.branch = process.starter, process.branch
        if call.ok:
            process.ran = True
            process.files = {fd: file for fd, file in process.files.items() if not file[1]}

    def _exit(self, call, process):
        if not process.root:
            del self._threads[call.thread]  # its number may be given again

    def _reap(self, call, process):
        if call.name == "waitid" and call.ok:
            call.result = number(call.text, "si_pid=")

    def _pause(self, call, process):
        call.at = number(call.text, "tv_sec=") * 10**9 + number(call.text, "tv_nsec=")

    def _open(self, call, process):
        given = quoted("".join(call.args))
        call.path = given if given.startswith("/") else call.target
        call.fd = call.result
        if call.ok:
            process.files[call.fd] = (File(call.path, "O_APPEND" in call.text),
                                      "O_CLOEXEC" in call.text)

    def _rename(self, call, process):
        paths, folder = [], ""
        for arg in call.args:
            if arg.startswith('"'):
                path = quoted(arg)
                paths.append(path if path.startswith("/") or not folder else f"{folder}/{path}")
            folder = annotated(arg)
        call.path, call.target = (paths + [""])[:2]

    _remove = _folder = _rename

    def _link(self, call, process):
        self._rename(call, process)
        call.path, call.target = call.target, call.path

    def _descriptor(self, call, process):
        """Of every other call, what its first argument is about."""
        call.fd = number(call.args[0])
        file, _ = process.files.get(call.fd, (None, False))
        call.path = file.path if file else annotated(call.args[0])
        second = call.args[1] if len(call.args) > 1 else ""
        if call.kind in ("read", "write"):
            self._move(call, file, second)
        elif call.kind == "truncate":
            call.path = quoted(call.args[0]) or call.path
            call.at = number(second)
        elif call.kind == "close" and call.ok:
            process.files.pop(call.fd, None)
        elif call.kind == "seek" and file and call.ok:
            file.position = call.result
        elif call.kind == "copy" or second.startswith("F_DUPFD"):
            process.files.pop(call.result, None)
            if file and call.ok:
                process.files[call.result] = (file, "CLOEXEC" in call.text)
        elif second in ("TIOCSRS485", "TIOCSSERIAL"):
            call.data, self._structure = self._structure, ""
        elif second == "F_SETFD" and file:
            process.files[call.fd] = (file, call.args[2] == "FD_CLOEXEC")

    def _move(self, call, file, data):
        call.data = quoted(data) if call.ok or call.kind == "write" else ""
        if call.fd == -2:
            self._structure = call.data
        if call.name.startswith("p"):
            call.at = number(call.args[3])
        elif file and (not file.append or call.kind == "read"):
            call.at = file.position
        if file and call.ok and not call.name.startswith("p"):
            file.position += call.result
