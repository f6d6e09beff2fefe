# SPDX-License-Identifier: MIT
"""debian/tests, run by Debian's own runner on a Debian root without an init. It installs the package and what the tests
name."""

import re
import shutil

import source_tree


def test_the_installed_package_passes_its_tests(debian, package):
    source_tree.export_to(debian.path / "srv/mdnsproxy")
    shutil.copy(package.path, debian.path / "srv")
    # What the runner would download by itself comes from the tests' own store, for which that is done once.
    debian.install("autopkgtest", "iproute2", "python3-zeroconf", *package.dependencies())
    shown = debian.run("autopkgtest", "--no-built-binaries", f"/srv/{package.path.name}", "/srv/mdnsproxy/",
                       "--", "null")
    print(shown)
    summary = shown.partition("@ summary\n")[2]
    assert re.findall(r"^(\S+) +(PASS|FAIL|SKIP|FLAKY)", summary, re.MULTILINE) == [("forwarding", "PASS")]
