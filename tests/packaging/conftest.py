# SPDX-License-Identifier: MIT
"""What the packaging tests share: the vocabulary of the end-to-end tests, one build of the package, one Debian root."""

import os

import pytest

from debian_root import DebianRoot
from package import Package


@pytest.fixture(scope="session")
def package():
    return Package()


@pytest.fixture(scope="module")
def debian():
    made = DebianRoot()
    yield made
    made.close()


def pytest_collection_modifyitems(items):
    """A test that cannot run is a failure, so nothing here may be skipped."""
    for item in items:
        for mark in ("skip", "skipif", "xfail"):
            assert item.get_closest_marker(mark) is None, f"{item.nodeid} is marked {mark}"


def pytest_sessionstart():
    if os.geteuid() != 0:
        pytest.exit("the packaging tests install a system and boot it, which needs root", returncode=3)
