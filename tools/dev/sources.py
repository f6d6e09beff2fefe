# SPDX-License-Identifier: MIT
"""The project's own C++ files, for the checks of this folder."""

import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = ("src", "tools", "tests", "fuzz", "bench")


def cpp_files(root=ROOT, folders=FOLDERS):
    """Every .h and .cpp below these folders, sorted."""
    return sorted(path for folder in folders for path in (root / folder).rglob("*") if path.suffix in (".h", ".cpp"))
