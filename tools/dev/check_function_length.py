#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that no function of src and tools is longer than 60 lines, unless it is one flat switch.

check_function_length.py [--figures] [ROOT]: prints each longer one as file:line: text, exit status 1 when there is one.
With --figures also the median and the longest.

It relies on the format check: a function begins and ends with lines of the same indentation, the last of them a lone
brace.
"""

import pathlib
import re
import statistics
import sys

from sources import ROOT, cpp_files

LONGEST = 60

_NOT_A_FUNCTION = re.compile(r"\s*(namespace|extern|enum|struct|class|union|if|for|while|switch|do|else|case|#)\b")
_FLAT_SWITCH = re.compile(r"^ *switch \(.*\) \{$")


def indentation(line):
    return len(line) - len(line.lstrip())


def first_line(lines, opening):
    """The line where the parameter list that ends on line `opening` began; None when there is none."""
    depth = 0
    for start in range(opening, -1, -1):
        depth += lines[start].count(")") - lines[start].count("(")
        if depth <= 0:
            return start if ")" in "".join(lines[start:opening + 1]) else None
    return None


def functions(lines):
    """(first line number, length in lines, body lines) of every function; what is nested in one is not counted
    apart."""
    at = 0
    while at < len(lines):
        start = first_line(lines, at) if lines[at].endswith("{") else None
        end = None
        if start is not None and not _NOT_A_FUNCTION.match(lines[start]):
            closing = " " * indentation(lines[start]) + "}"
            end = next((number for number in range(at + 1, len(lines)) if lines[number] == closing), None)
        if end is None:
            at += 1
            continue
        yield start + 1, end - start + 1, lines[at + 1:end]
        at = end + 1


def is_flat_switch(body):
    """Nothing but one switch (and the statement after it): a table that happens to be written as code."""
    indent = min((indentation(line) for line in body if line.strip()), default=0)
    statements = [line for line in body if line.strip() and indentation(line) == indent
                  and not line.strip().startswith(("}", "//"))]
    return any(_FLAT_SWITCH.match(line) for line in statements) and len(statements) <= 2


def main():
    arguments = [argument for argument in sys.argv[1:] if argument != "--figures"]
    root = pathlib.Path(arguments[0]).resolve() if arguments else ROOT
    lengths, found = [], 0
    for path in cpp_files(root, ("src", "tools")):
        for number, length, body in functions(path.read_text(encoding="utf-8").splitlines()):
            lengths.append(length)
            if length > LONGEST and not is_flat_switch(body):
                print(f"{path.relative_to(root)}:{number}: a function of {length} lines (at most {LONGEST})")
                found += 1
    if "--figures" in sys.argv and lengths:
        print(f"{len(lengths)} functions, median {statistics.median(lengths):g} lines, longest {max(lengths)}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
