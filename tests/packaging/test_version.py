# SPDX-License-Identifier: MIT
"""The version stands in CMakeLists.txt; everything else follows it."""

import re

import source_tree


def test_the_daemon_shows_it():
    banner = source_tree.run(source_tree.BUILD / "mdnsproxy", "-v")
    assert banner == f"\nmdnsproxy -- Zenmor Bonjour Gateway -- version {source_tree.version()}\n\n"


def test_the_checker_shows_it():
    assert source_tree.run(source_tree.BUILD / "mdnsproxy-check", "--version").strip() == source_tree.version()


def test_the_package_has_it():
    shown = source_tree.run("dpkg-parsechangelog", "-l", source_tree.ROOT / "debian/changelog", "-S", "Version")
    assert shown.strip() == source_tree.version()


def test_the_changelog_begins_with_it():
    first = re.search(r"^## (\S+)", source_tree.read("CHANGELOG.md"), re.MULTILINE)[1]
    assert first in (source_tree.version(), "Unreleased")


def test_no_source_repeats_it():
    """A number in a comment's example aside."""
    version = source_tree.version()
    folders = ("src", "tools/mdnsproxy-check")
    for file in [file for folder in folders for file in sorted((source_tree.ROOT / folder).rglob("*"))]:
        if file.suffix in (".cpp", ".h"):
            code = "\n".join(line.split("//")[0] for line in file.read_text(encoding="utf-8").splitlines())
            assert f'"{version}"' not in code, file
