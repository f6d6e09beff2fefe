#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that no line of the folders below is longer than 120 columns.

check_line_length.py [ROOT]: prints each longer one as file:line: text, exit status 1 when there is one.

To widen it: add a folder to FOLDERS, give its C++ a .clang-format like that of src/tables (or the root's .clang-format
this limit, once all are here), run check_format --fix, and wrap by hand what is left: comments and other languages.
"""

import sys

from sources import ROOT, report

LONGEST = 120

# Below each, files of these kinds. The rest of the tree follows.
FOLDERS = ("src/config", "src/tables", "tests/static")
KINDS = (".h", ".cpp", ".c", ".py", ".sh", ".txt")


def breaches(root):
    for folder in FOLDERS:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix not in KINDS:
                continue
            for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
                if len(line) > LONGEST:
                    yield path.relative_to(root), number, f"{len(line)} columns, {LONGEST} at most"


if __name__ == "__main__":
    sys.exit(report(breaches))
