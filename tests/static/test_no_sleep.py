# SPDX-License-Identifier: MIT
"""Tests and benchmarks wait for conditions: a fixed time stands in the testbed's waiting.py alone, with its reason."""

import pathlib
import re

from sources import ROOT

WAITING = ROOT / "tests" / "support" / "testbed" / "waiting.py"
PROGRAMS = [ROOT / "bench" / "run", ROOT / "debian" / "tests" / "forwarding"]
SLEEP = re.compile(r"\btime\.sleep\b|\bfrom time import\b")


def test_nothing_sleeps_by_itself():
    files = {path for folder in ("tests", "bench") for path in (ROOT / folder).rglob("*.py")} | set(PROGRAMS)
    sleeping = {path for path in files if SLEEP.search(path.read_text(encoding="utf-8"))}
    assert sleeping - {pathlib.Path(__file__).resolve()} == {WAITING}
