# SPDX-License-Identifier: MIT
"""tools/dev/lint: what it looks at, and what it passes over because nothing has changed."""

import json
import os
import pathlib
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]

# Finds fault with every file that holds the word.
CLANG_TIDY = """#!/bin/sh
for file; do :; done
[ "$1" = --version ] && { echo version; exit 0; }
echo "${file##*/}" >>"$LOOKED_AT"
! grep fault "$file"
"""
NINJA = """#!/bin/sh
printf "one.o: #deps 2, deps mtime 1 (VALID)\\n    ../src/one.cpp\\n    ../src/one.h\\n\\n"
printf "two.o: #deps 1, deps mtime 1 (VALID)\\n    ../src/two.cpp\\n\\n"
"""


class Tree:
    """A source tree of two files and a header, with a linter and a ninja of its own."""

    def __init__(self, path):
        self.path = path
        for name, text in {"src/one.cpp": "1", "src/one.h": "1", "src/two.cpp": "2", ".clang-tidy": "x",
                           "bin/clang-tidy": CLANG_TIDY, "bin/ninja": NINJA}.items():
            self.write(name, text)
        (path / "tools/dev").mkdir(parents=True)
        shutil.copy(ROOT / "tools/dev/lint", path / "tools/dev/lint")
        self.write_commands()

    def write_commands(self, options=""):
        self.write("build/compile_commands.json", json.dumps([
            {"directory": str(self.path / "build"), "file": f"../src/{name}.cpp",
             "command": f"c++ {options} -o {name}.o -c ../src/{name}.cpp"} for name in ("one", "two")]))

    def write(self, name, text):
        file = self.path / name
        file.parent.mkdir(exist_ok=True)
        file.write_text(text, encoding="ascii")
        file.chmod(0o755)

    def lint(self, *options, long=""):
        """Its status, and what it has looked at."""
        looked_at = self.path / "looked-at"
        looked_at.write_text("")
        environment = {**os.environ, "PATH": f"{self.path / 'bin'}:{os.environ['PATH']}", "LOOKED_AT": str(looked_at),
                       "MDNSPROXY_CHECK_LONG": long}
        done = subprocess.run([self.path / "tools/dev/lint", *options, self.path / "build"], env=environment,
                              check=False, stdin=subprocess.DEVNULL, capture_output=True)
        return done.returncode, sorted(looked_at.read_text().split())


@pytest.fixture
def tree(tmp_path):
    made = Tree(tmp_path)
    assert made.lint() == (0, ["one.cpp", "two.cpp"])
    return made


def test_what_has_not_changed_is_passed_over(tree):
    assert tree.lint() == (0, [])
    assert tree.lint("--all") == (0, ["one.cpp", "two.cpp"])


def test_a_copy_of_the_tree_elsewhere_is_passed_over_too(tree, tmp_path_factory):
    elsewhere = tmp_path_factory.mktemp("elsewhere") / "tree"
    shutil.copytree(tree.path, elsewhere)
    tree.path = elsewhere
    tree.write_commands("-O3")
    assert tree.lint() == (0, [])
    tree.write_commands("-DOTHER")
    assert tree.lint() == (0, ["one.cpp", "two.cpp"])


def test_a_long_check_passes_nothing_over(tree):
    assert tree.lint(long="1") == (0, ["one.cpp", "two.cpp"])


@pytest.mark.parametrize("changed, due", [("src/two.cpp", ["two.cpp"]), ("src/one.h", ["one.cpp"]),
                                          (".clang-tidy", ["one.cpp", "two.cpp"])])
def test_what_has_changed_is_looked_at(tree, changed, due):
    tree.write(changed, "other")
    assert tree.lint() == (0, due)
    assert tree.lint() == (0, [])


def test_a_finding_is_found_until_it_is_gone(tree):
    tree.write("src/one.h", "other")
    tree.write("src/two.cpp", "fault")
    assert tree.lint() == (1, ["one.cpp", "two.cpp"])
    assert tree.lint() == (1, ["two.cpp"])
    tree.write("src/two.cpp", "2")
    assert tree.lint() == (0, ["two.cpp"])


def test_what_an_object_was_made_of_must_be_known(tree):
    tree.write("bin/ninja", "#!/bin/sh\n")
    assert tree.lint() == (0, ["one.cpp", "two.cpp"])
    assert tree.lint() == (0, ["one.cpp", "two.cpp"])
