"""The far end of a pty that answers each request as it is told: late, in pieces, with noise, or not
at all."""
import os
import select
import threading
import time
import tty


class Peer(threading.Thread):
    """`answer` is called in the peer's thread with the number of the request (from 0) and its text;
    it gives pieces, pairs of a delay in seconds and a text."""

    def __init__(self, answer):
        super().__init__()
        self._answer, self._over, self.requests = answer, threading.Event(), 0
        self._far, self.slave = os.openpty()
        tty.setraw(self.slave)
        self.path = os.ttyname(self.slave)

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self._over.set()
        self.join()
        os.close(self._far)
        os.close(self.slave)

    def run(self):
        received = ""  # of a request that is not complete
        while not self._over.is_set():
            if select.select([self._far], [], [], 0.02)[0]:
                received += os.read(self._far, 256).decode("latin-1")
            *requests, received = received.split("\n")
            for request in requests:
                self.requests += 1
                for delay, text in self._answer(self.requests - 1, request + "\n"):
                    time.sleep(delay)
                    os.write(self._far, text.encode("latin-1"))
