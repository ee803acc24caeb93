"""The far end of a pty that answers each request as it is told: late, in pieces, with noise, or not
at all."""
import os
import select
import threading
import time
import tty


class Peer:
    """`answer` is called in the peer's thread with the number of the request (from 0) and its text;
    it gives pieces, pairs of a delay in seconds (None: the adapter is pulled out) and a text."""

    def __init__(self, answer):
        self._answer, self._over = answer, threading.Event()
        self._master, self._slave = os.openpty()
        tty.setraw(self._slave)
        self.path, self.requests = os.ttyname(self._slave), 0
        self._thread = threading.Thread(target=self._serve)
        self._thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._over.set()
        self._thread.join()
        for file in (self._master, self._slave):
            if file is not None:
                os.close(file)

    def _serve(self):
        received = ""  # of a request that is not complete
        while not self._over.is_set() and self._master is not None:
            if select.select([self._master], [], [], 0.02)[0]:
                received += os.read(self._master, 256).decode("latin-1")
            while "\n" in received and self._master is not None:
                request, _, received = received.partition("\n")
                self.requests += 1
                for delay, text in self._answer(self.requests - 1, request + "\n"):
                    self._send(delay, text)

    def _send(self, delay, text):
        if delay is None:
            os.close(self._master)
            self._master = None
        else:
            time.sleep(delay)
            os.write(self._master, text.encode("latin-1"))
