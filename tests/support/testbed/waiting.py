# SPDX-License-Identifier: MIT
"""Waiting for a condition, never for a time."""

import time


def wait_until(condition, within, what="the condition"):
    """Calls `condition` until its result is true and returns that result. Fails after `within` seconds, saying `what`
    (a text, or a function that makes one) did not happen."""
    deadline = time.monotonic() + within
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise AssertionError(f"after {within} s still not: {what() if callable(what) else what}")
        time.sleep(0.01)


def stays_true(condition, during, what="the condition"):
    """The opposite: fails as soon as `condition` is false within `during` seconds. For what must not happen, where no
    event marks the moment after which it cannot."""
    end = time.monotonic() + during
    while time.monotonic() < end:
        assert condition(), f"no longer: {what() if callable(what) else what}"
        time.sleep(0.02)
