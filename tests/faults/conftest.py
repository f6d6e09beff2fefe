# SPDX-License-Identifier: MIT
"""The scene of the end-to-end tests, and their vocabulary, for the tests of this folder too."""

import importlib.util
import pathlib
import sys

_TESTS = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(_TESTS / "e2e"), str(_TESTS / "hostile")]
_specification = importlib.util.spec_from_file_location("e2e_conftest", _TESTS / "e2e" / "conftest.py")
_conftest = importlib.util.module_from_spec(_specification)
_specification.loader.exec_module(_conftest)

scene = _conftest.scene
pytest_collection_modifyitems = _conftest.pytest_collection_modifyitems
pytest_runtest_makereport = _conftest.pytest_runtest_makereport
pytest_sessionstart = _conftest.pytest_sessionstart
