# SPDX-License-Identifier: MIT
"""Half an hour of churn; see test_churn.py."""

from churn import returns_to_where_it_started


def test_half_an_hour_of_churn_leaves_nothing_behind(scene):
    returns_to_where_it_started(scene, 1800)
