#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that no source line is longer than 120 columns.

check_line_length.py [ROOT]: prints each longer one as file:line: text, exit status 1 when there is one. check_format
--fix wraps C++ code; comments and Python are wrapped by their writer.
"""

import sys

from sources import ROOT, report

LONGEST = 120

FOLDERS = ("src", "tests", "tools", "fuzz", "bench")
KINDS = (".h", ".cpp", ".c", ".py")  # in each of them


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
