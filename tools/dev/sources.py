# SPDX-License-Identifier: MIT
"""The project's own C++ files, for the checks of this folder."""

import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = ("src", "tools", "tests", "fuzz", "bench")


def cpp_files(root=ROOT, folders=FOLDERS):
    """Every .h and .cpp below these folders, sorted."""
    return sorted(path for folder in folders for path in (root / folder).rglob("*") if path.suffix in (".h", ".cpp"))


def report(breaches):
    """The main program of a check: breaches(root) gives (file, line number, text) of each; prints them as file:line:
    text. The exit status: 1 when there is one."""
    root = pathlib.Path(sys.argv[1]).resolve() if len(sys.argv) > 1 else ROOT
    found = list(breaches(root))
    for path, number, text in found:
        print(f"{path}:{number}: {text}")
    return 1 if found else 0
