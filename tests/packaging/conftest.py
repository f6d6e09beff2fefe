# SPDX-License-Identifier: MIT
"""What the packaging tests share: the vocabulary of the end-to-end tests, one build of the package, one Debian root."""

import pytest

from debian_root import DebianRoot
from package import Package
from testbed.scene import pytest_collection_modifyitems, pytest_sessionstart  # noqa: F401


@pytest.fixture(scope="session")
def package():
    return Package()


@pytest.fixture(scope="module")
def debian():
    made = DebianRoot()
    yield made
    made.close()
