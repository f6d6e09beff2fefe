# SPDX-License-Identifier: MIT
"""What every end-to-end test has: a scene, and the network and the ear that most of them have in it."""

from testbed.scene import (  # noqa: F401
    ear, net, pytest_collection_modifyitems, pytest_runtest_makereport, pytest_sessionstart, scene)
