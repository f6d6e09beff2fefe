# SPDX-License-Identifier: MIT
"""The source tree beside what is built in it."""

import subprocess

import source_tree

# What dpkg-buildpackage leaves (tests/packaging builds in a copy, where nobody sees it).
PRODUCTS = ["debian/.debhelper/generated/mdnsproxy/installed-by-dh_install", "debian/debhelper-build-stamp",
            "debian/files", "debian/mdnsproxy/usr/sbin/mdnsproxy", "debian/mdnsproxy.postinst.debhelper",
            "debian/mdnsproxy.substvars", "debian/mdnsproxy.debhelper.log", "obj-x86_64-linux-gnu/mdnsproxy",
            "build/mdnsproxy"]


def ignored(paths):
    done = subprocess.run(["git", "-C", source_tree.ROOT, "check-ignore", "--no-index", *paths],
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    return done.stdout.splitlines()


def test_what_is_built_is_ignored():
    assert ignored(PRODUCTS) == PRODUCTS


def test_nothing_of_the_tree_is():
    listed = source_tree.run("git", "-C", source_tree.ROOT, "ls-files").splitlines()
    assert ignored(listed) == []
