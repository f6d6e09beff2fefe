# SPDX-License-Identifier: MIT
"""The scene of the tests in network namespaces, for those of this folder."""

from testbed.scene import (  # noqa: F401
    pytest_collection_modifyitems, pytest_runtest_makereport, pytest_sessionstart, scene)
