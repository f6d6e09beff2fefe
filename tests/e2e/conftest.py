# SPDX-License-Identifier: MIT
"""What every end-to-end test has: a scene, and the network, the daemon and the ear that most of them have in it."""

from testbed.scene import (  # noqa: F401
    daemon, ear, net, pytest_collection_modifyitems, pytest_runtest_makereport, pytest_sessionstart, scene)
