# SPDX-License-Identifier: MIT
"""The fixtures of the end-to-end tests (every part is closed at the end; on a failure each tells its story) serve here
too."""

import importlib.util
import pathlib

import crowd  # noqa: F401  pylint: disable=unused-import  # puts the end-to-end tests' vocabulary on the path

_spec = importlib.util.spec_from_file_location("e2e_conftest",
                                               pathlib.Path(__file__).parents[1] / "e2e" / "conftest.py")
_e2e = importlib.util.module_from_spec(_spec)
_spec.loader.exec_module(_e2e)

scene = _e2e.scene
pytest_runtest_makereport = _e2e.pytest_runtest_makereport
pytest_collection_modifyitems = _e2e.pytest_collection_modifyitems
pytest_sessionstart = _e2e.pytest_sessionstart
