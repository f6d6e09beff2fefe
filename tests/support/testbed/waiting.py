# SPDX-License-Identifier: MIT
"""Waiting for a condition, never for a time."""

import threading
import time


def wait_until(condition, within, what="the condition", interval=0.01):
    """Calls `condition`, each `interval` seconds, until its result is true and returns that result. Fails after
    `within` seconds, saying `what` (a text, or a function that makes one) did not happen."""
    deadline = time.monotonic() + within
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise AssertionError(f"after {within} s still not: {what() if callable(what) else what}")
        time.sleep(interval)


def stays_true(condition, during, what="the condition"):
    """The opposite: fails as soon as `condition` is false within `during` seconds. For what must not happen, where no
    event marks the moment after which it cannot."""
    end = time.monotonic() + during
    while time.monotonic() < end:
        assert condition(), f"no longer: {what() if callable(what) else what}"
        time.sleep(0.02)
    assert condition(), f"no longer: {what() if callable(what) else what}"


def let_pass(seconds):
    """Does nothing for so long: for the pace of what a test does itself, and for a time over which something is
    counted. Not for what could be waited for."""
    time.sleep(max(0.0, seconds))


def let_pass_until(moment, clock=time.monotonic):
    """The same until that moment of the clock."""
    let_pass(moment - clock())


def wait_for_silence(last, quiet, within, what="silence"):
    """Waits until the moment that `last` returns, the latest at which something was said, is more than `quiet` seconds
    ago. While it returns None, nothing has been said yet, and something will be."""
    def is_over():
        said = last()
        return said is not None and time.monotonic() - said > quiet
    wait_until(is_over, within, what)


class Meanwhile:
    """Calls `act` again and again, some hundred times a second, in a thread of its own until it is closed."""

    def __init__(self, act):
        self._act = act
        self._stopped = threading.Event()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def _run(self):
        while not self._stopped.wait(0.005):
            self._act()

    def close(self):
        self._stopped.set()
        self._thread.join()
