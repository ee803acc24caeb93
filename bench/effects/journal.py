"""Tells in plain lines what the agent does to the panel, from its calls to the kernel. What the
lines mean stands in tests/effects/README.md."""
from effects.wording import (Effect, Step, changed_name, command_text, control_text, event_text,
                             folded, is_port, line_of, open_mode, quoted_bytes, short_name)

BETWEEN_LOOKS = 20_000_000  # ns of pause between two looks at a silent port
# The panel's own places; everything else is the toolkit's and the C library's.
PANELS = ("/usr/local/", "/dev/tty", "/dev/input/", "/dev/Ostra", "/dev/mtd", "/sys/bus/",
          "/sys/class/", "/media/", "/mnt/", "/tmp/", "/etc/pointercal")


class Journal:
    def __init__(self, link=""):
        self.heard = False  # a byte came over the PC link since take()
        self.idle = 0  # see idle_turns()
        self._pc_link = link  # the PC link's device, whose requests and idle looks are left out
        self._agent = 0
        self._effects = []
        self._files = {}  # the panel's files and ports, by descriptor
        self._opened_now = []
        self._silent = set()  # ports whose last look found nothing
        self._tried = {}  # by process: the program that it could not become
        self._interrupted = 0  # the pause that a signal cut short

    def idle_turns(self):
        """How often the GUI thread has waited in vain for an event since it last read a byte from
        the PC link, or did anything to the panel."""
        starting = any(effect.child and not effect.text for effect in self._effects)
        return 0 if starting else self.idle

    def tells(self, text):
        """Whether a line with `text` is there, since take()."""
        return any(text in line_of(effect) for effect in self._effects)

    def take(self):
        """The lines since the last call: the GUI thread's first, then each other thread's under a
        line of its own, then what stayed open."""
        lines = []
        threads = dict.fromkeys([self._agent] + [effect.thread for effect in self._effects])
        for thread in threads:
            lines += ["thread"] * (thread != self._agent) + folded(
                [line_of(effect) for effect in self._effects if effect.thread == thread])
        lines += [f"stays open {self._files[fd]}" for fd in self._opened_now]
        self._effects, self._opened_now, self.heard, self.idle = [], [], False, 0
        return lines

    def add(self, call):
        self._agent = self._agent or call.process
        if call.kind == "program" and call.starter:
            self._ran(call)
        for effect in self._effects:
            if call.kind == "exit" and effect.child == call.process:
                effect.text = self._tried.pop(call.process, effect.text)
        if call.process == self._agent:
            getattr(self, "_" + call.kind, lambda call: None)(call)

    def _put(self, thread, text, **details):
        self.idle = 0
        self._effects.append(Effect(thread, text, **details))
        return self._effects[-1]

    def _tell(self, call, text):
        self._put(call.thread, text, over=True)

    def _last(self, thread):
        """The thread's effect, if the next call may join it."""
        last = next((e for e in reversed(self._effects) if e.thread == thread), None)
        return last if last and not last.over else None

    def _file_did(self, call, text):
        if not call.path.startswith(PANELS) or is_port(call.path):
            return
        effect = self._last(call.thread)
        if not effect or not effect.file or effect.fd != call.fd:
            effect = self._put(call.thread, "", file=call.path, fd=call.fd)
        effect.steps.append(Step(call.kind, text, call.at, call.data))
        effect.over = call.kind == "close"

    def _open(self, call):
        port = is_port(call.path)
        # A look for a file that is not there leaves no trace on the panel.
        if not call.path.startswith(PANELS) or (call.error == "ENOENT" and not port):
            return
        how = open_mode(call.args[1 if call.name == "open" else 2], port)
        if call.ok:
            self._files[call.fd] = call.path
            self._opened_now.append(call.fd)
        if call.ok and not port:
            self._put(call.thread, how, file=call.path, fd=call.fd)
        else:
            failed = "" if call.ok else f": {call.error}"
            self._tell(call, f"{'open' if port else 'file'} {short_name(call.path)} {how}{failed}")

    def _close(self, call):
        path = self._files.pop(call.fd, "")
        if call.fd in self._opened_now:
            self._opened_now.remove(call.fd)
        if not call.ok:
            self._tell(call, "close what is not open")
        elif is_port(path):
            self._tell(call, "close " + path)
        elif path:
            self._file_did(call, "close")

    def _read(self, call):
        empty = call.result <= 0
        if not is_port(call.path):
            return None if empty else self._file_did(call, "read")
        again = call.fd in self._silent
        self._silent.discard(call.fd)
        link = call.path == self._pc_link
        if empty and (not again or link):
            self._silent.add(call.fd)
        if link:
            self.heard |= not empty
            self.idle = self.idle if empty else 0
        elif again or not empty:
            self._receive(call, empty)

    def _receive(self, call, empty):
        effect = self._last(call.thread)
        if not effect or not effect.port or effect.fd != call.fd:
            effect = self._put(call.thread, "", port=call.path, fd=call.fd)
        effect.steps.append(Step("read", "", -1, call.data))
        effect.over = effect.silence = empty

    def _write(self, call):
        if call.fd in (-2, 2):
            return
        if call.fd == 1:
            self._tell(call, "print " + quoted_bytes(call.data))
        elif is_port(call.path):
            self._tell(call, f"send {call.path} {quoted_bytes(call.data)}")
        elif call.fd < 1:
            self._tell(call, f"send descriptor {call.fd} {quoted_bytes(call.data)}")
        elif call.path.startswith("/dev/input/"):
            self._file_did(call, event_text(call.data))
        else:
            self._file_did(call, "write" if call.ok else f"write, refused: {call.error}")

    def _control(self, call):
        if call.fd == 0 and call.args[1] == "F_SETFL":
            self._tell(call, "stdin " + open_mode(call.args[2]).replace("read-only ", ""))
        elif is_port(call.path) and control_text(call):
            self._tell(call, control_text(call))

    def _child(self, thread, child):
        """A command has its place where the agent started it, however late it becomes a program."""
        return next((effect for effect in self._effects if effect.child == child), None) \
            or self._put(thread, "", child=child)

    def _start(self, call):
        if call.ok and "CLONE_THREAD" not in call.text:
            self._child(call.thread, call.result)

    def _ran(self, call):
        command = command_text(call.words)
        if not call.ok:
            self._tried[call.process] = f"{command}: {call.error}"
            return
        self._tried.pop(call.process, None)
        effect = self._child(call.starter, call.branch)
        effect.text = command
        effect.direct = call.process == call.branch

    def _reap(self, call):
        """A program whose end the agent awaits before it does anything else was waited for."""
        for effect in self._effects:
            if call.result > 0 and effect.child == call.result:
                effect.awaited = self._last(effect.thread) is effect
                effect.over = True

    def _pause(self, call):
        """One that a signal cuts short is gone on with for the rest."""
        rest = call.at < self._interrupted
        self._interrupted = call.at if call.error else 0
        if rest or (call.at == BETWEEN_LOOKS and self._silent):
            return
        ms, ns = divmod(call.at, 1_000_000)
        self._tell(call, f"pause {call.at // 1000} us" if ns else f"pause {ms} ms")

    def _poll(self, call):
        if call.thread != self._agent:
            return
        self.idle += call.result == 0 and call.args[2] != "0"
        for effect in self._effects:
            effect.over = True

    def _sync(self, call):
        effect = self._last(call.thread)
        if effect and effect.file and effect.fd in self._files:
            effect.steps.append(Step("sync", "sync", -1, ""))
        else:
            self._tell(call, "sync")

    def _sync_file(self, call):
        self._file_did(call, "sync file")

    def _truncate(self, call):
        self._file_did(call, f"cut to {call.at}")

    def _rename(self, call):
        if call.path.startswith(PANELS):
            self._tell(call, changed_name(call))

    _remove = _folder = _link = _rename

    def _exit(self, call):
        self._tell(call, f"exit {int(call.args[0]) & 0xff}")
