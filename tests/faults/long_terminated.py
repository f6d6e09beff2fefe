# SPDX-License-Identifier: MIT
"""SIGTERM at three hundred random moments; see test_terminated.py."""

from terminated import terminate_often


def test_it_ends_at_whatever_moment():
    terminate_often(300, stations=4)
