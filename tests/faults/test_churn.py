# SPDX-License-Identifier: MIT
"""Twenty seconds of churn: what the daemon holds returns to where it started.

    link A                                           gateway          link B
    [ four hosts whose services come and go ]-------[ mdnsproxy ]-----[ client ]
"""

from churn import returns_to_where_it_started


def test_twenty_seconds_of_churn_leave_nothing_behind(scene):
    returns_to_where_it_started(scene, 20)
