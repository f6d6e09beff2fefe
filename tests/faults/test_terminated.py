# SPDX-License-Identifier: MIT
"""SIGTERM at twenty random moments, start-up and load included: it always ends in time with status 10 and leaves
nothing on link B.

    link A                                     gateway          link B
    [ forty services that come and change ]---[ mdnsproxy ]-----[ client ]        (four times, side by side)
"""

from terminated import terminate_often


def test_it_ends_at_whatever_moment():
    terminate_often(20, stations=4)
