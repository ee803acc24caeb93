"""Waits for what has no event."""
import time


def wait_for(done, seconds):
    """Whether `done()` has come to be true within so many seconds. It is asked once at least."""
    end = time.monotonic() + seconds
    while not done():
        if time.monotonic() >= end:
            return False
        time.sleep(0.005)
    return True


def until_none(find, seconds):
    """What `find()` found last: nothing, or what was still there after so many seconds."""
    found = []

    def none():
        found[:] = find()
        return not found
    wait_for(none, seconds)
    return found
