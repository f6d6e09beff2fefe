# SPDX-License-Identifier: MIT
"""Two builds of the same tree give the same packages, byte for byte. The date of every file in them is that of the
changelog or an older one, as dpkg-buildpackage has it."""

import hashlib
import io
import os
import subprocess
import tarfile

import package as debian_package
import pytest
import source_tree

# What a build must not depend on: its folder, who may read new files, the locale, the time zone, the compiler's cache.
ELSEWHERE = {"LC_ALL": "POSIX", "TZ": "XYZ-12:45", "CCACHE_DISABLE": "1"}
ELSEWHERE_UMASK = 0o027


@pytest.fixture(scope="module")
def folders(tmp_path_factory):
    """Where the packages of two builds are, both made from one copy of the tree: it may change meanwhile."""
    top = tmp_path_factory.mktemp("reproducible")
    (top / "tree").mkdir()
    source_tree.export_to(top / "tree")
    first = top / "first"
    second = top / "a-folder-with-a-name-that-is-longer" / "and-deeper"
    debian_package.build(first, top / "tree")
    before = os.umask(ELSEWHERE_UMASK)
    try:
        debian_package.build(second, top / "tree", **ELSEWHERE)
    finally:
        os.umask(before)
    return first, second


# pylint: disable=redefined-outer-name


def members(package, part):
    """What is in a *.deb: each path with its kind, rights, owner, date, target of a link, and hash of its bytes. `part`
    is --ctrl-tarfile (about the package) or --fsys-tarfile (the files that are installed)."""
    packed = subprocess.run(["dpkg-deb", part, package], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True)
    with tarfile.open(fileobj=io.BytesIO(packed.stdout)) as archive:
        return {each.name: (each.type, oct(each.mode), each.uname, each.gname, each.mtime, each.linkname,
                            hashlib.sha256(archive.extractfile(each).read()).hexdigest() if each.isfile() else "")
                for each in archive}


def different(first, second):
    """The paths that only one of them has, or that are not the same in both, with what each has there."""
    return {path: (first.get(path), second.get(path)) for path in sorted(first.keys() | second.keys())
            if first.get(path) != second.get(path)}


def names(folder):
    return sorted(path.name for path in folder.glob("*.deb"))


def test_both_make_the_same_packages(folders):
    """The package, and the one with what a debugger wants of it."""
    first, second = map(names, folders)
    assert first == second
    assert {name.split("_")[0] for name in first} == {"mdnsproxy", "mdnsproxy-dbgsym"}


@pytest.mark.parametrize("part", ("--ctrl-tarfile", "--fsys-tarfile"))
def test_every_file_in_them_is_the_same(folders, part):
    first, second = folders
    for name in names(first):
        assert different(members(first / name, part), members(second / name, part)) == {}, name


def test_the_packages_are_the_same_bytes(folders):
    """Beyond what is in them: the order of it, and how it is packed."""
    first, second = folders
    assert [name for name in names(first) if (first / name).read_bytes() != (second / name).read_bytes()] == []
