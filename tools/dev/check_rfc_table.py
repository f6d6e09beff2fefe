#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that the tables of docs/rfc6762.md name what exists: in each row the files that keep a rule with the functions
named behind them, and the tests that show it.

check_rfc_table.py [ROOT]: prints each breach as file:line: text; exit status 1 when there is one.
"""

import pathlib
import re
import sys

from sources import report

TABLE = pathlib.Path("docs/rfc6762.md")
ENGINE = pathlib.Path("src/mdns")  # files without a folder are somewhere below it
TESTS = (pathlib.Path("tests/mdns"), pathlib.Path("tests/dnssd"))
COLUMNS = 4
NO_TEST = "–"
NOT_KEPT = ("does not apply: ", "not met: ", "not met in part: ", "not met in full: ")

# A file, and the functions or other names in parentheses behind it.
_PLACE = re.compile(r"`([^`]+\.(?:cpp|h))`(?: \(([\w:]+(?:, [\w:]+)*)\))?")
_TESTS = re.compile(r"`([^`]+)`: (\S+(?:, \S+)*)")


class Tree:
    """The files below a root, each read once."""

    def __init__(self, root):
        self.root, self._texts = root, {}
        self._engine = {path.name: path.relative_to(root) for path in (root / ENGINE).rglob("*")}

    def of_engine(self, name):
        """The path of the engine's file of that name."""
        return self._engine.get(name, ENGINE / name)

    def text(self, path):
        """The file's content, or None when there is no such file."""
        if path not in self._texts:
            whole = self.root / path
            self._texts[path] = whole.read_text(encoding="utf-8") if whole.is_file() else None
        return self._texts[path]


def of_place(tree, cell):
    """What is wrong with the cell that says where a rule is kept."""
    places = _PLACE.findall(cell)
    if not places and not cell.startswith(NOT_KEPT):
        yield "says neither where the rule is kept nor why it is not"
    for file, names in places:
        text = tree.text(pathlib.Path(file) if "/" in file else tree.of_engine(file))
        if text is None:
            yield f"there is no {file}"
            continue
        for name in filter(None, names.split(", ")):
            if not all(re.search(rf"\b{part}\b", text) for part in name.split("::")):
                yield f"there is no {name} in {file}"


def has_test(text, name):
    """Whether the test is in the file: a Python function without its test_, or Suite.Test."""
    if "." not in name:
        return re.search(rf"^def test_{re.escape(name)}\(", text, re.MULTILINE) is not None
    suite, test = name.split(".", 1)
    return re.search(rf"^(TYPED_)?TEST(_[FP])?\(\s*{re.escape(suite)},\s*{re.escape(test)}\)", text,
                     re.MULTILINE) is not None


def of_tests(tree, cell):
    """What is wrong with the cell that names the tests."""
    if cell == NO_TEST:
        return
    for part in cell.split("; "):
        match = _TESTS.fullmatch(part)
        if not match:
            yield f"'{part}' is not a file and its tests"
            continue
        text = next(filter(None, (tree.text(folder / match[1]) for folder in TESTS)), None)
        if text is None:
            yield f"there is no {match[1]} in {' or '.join(map(str, TESTS))}"
            continue
        for name in match[2].split(", "):
            if not has_test(text, name):
                yield f"there is no {name} in {match[1]}"


def breaches(root):
    """(file, line number, text) of every breach in the tables of root."""
    tree = Tree(root)
    for number, line in enumerate((root / TABLE).read_text(encoding="utf-8").splitlines(), start=1):
        if not line.startswith("|") or line.startswith(("| Section |", "|---")):
            continue
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if len(cells) != COLUMNS:
            yield TABLE, number, f"the row has {len(cells)} cells, not {COLUMNS}"
            continue
        for text in (*of_place(tree, cells[2]), *of_tests(tree, cells[3])):
            yield TABLE, number, f"section {cells[0]}: {text}"


if __name__ == "__main__":
    sys.exit(report(breaches))
