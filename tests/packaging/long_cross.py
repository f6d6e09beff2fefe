# SPDX-License-Identifier: MIT
"""The Debian package for other architectures, by dpkg-buildpackage's cross build on a Debian root for this one. apt
installs it there, with the libraries that it depends on, and its programs are started under qemu-user; no machine of
that kind is here to boot. tests/portability/long_cross.py runs the unit tests under qemu-user."""

import re
import shutil

import package as debian_package
import pytest
import source_tree
from debian_root import DebianRoot

# Architecture: how readelf names it, the emulator.
ARCHITECTURES = {"arm64": ("AArch64", "qemu-aarch64-static"), "armhf": ("ARM", "qemu-arm-static")}
PROGRAMS = ("usr/sbin/mdnsproxy", "usr/bin/mdnsproxy-check", "usr/bin/mdnsproxyctl")


@pytest.fixture(scope="module", params=ARCHITECTURES)
def architecture(request):
    return request.param


@pytest.fixture(scope="module")
def root(architecture):
    """Where the package was built and is installed."""
    made = DebianRoot()
    try:
        made.run("dpkg", "--add-architecture", architecture)
        made.run("apt-get", "-q", "update")
        made.install(f"crossbuild-essential-{architecture}")
        debian_package.build_in(made, directory(architecture), f"-a{architecture}")
        path = debian_package.Package(directory(architecture)).path
        shutil.copy(path, made.path)
        made.install(f"/{path.name}")
        yield made
    finally:
        made.close()


@pytest.fixture(scope="module")
def cross_package(architecture, root):  # pylint: disable=unused-argument
    return debian_package.Package(directory(architecture))


def directory(architecture):
    return debian_package.DIRECTORY.with_name(f"package-{architecture}")


# pylint: disable=redefined-outer-name


def test_it_is_installed_for_that_architecture(root, architecture):
    shown = root.run("dpkg-query", "-W", "-f", "${Architecture} ${db:Status-Status}", "mdnsproxy")
    assert shown == f"{architecture} installed"


def test_nobody_complains(cross_package):
    assert cross_package.findings == ""
    assert re.findall(r"^.*\.(?:cpp|h)(?::\d+)+: warning: .*$", cross_package.log, re.MULTILINE) == []


def test_it_holds_what_this_machines_own_does(cross_package, package):
    def names(of):
        return {re.sub(r"/usr/lib/[\w-]+/mdnsproxy/", "/usr/lib/*/mdnsproxy/", path) for path in of.files()}
    assert names(cross_package) == names(package)


@pytest.mark.parametrize("program", PROGRAMS)
def test_a_program_is_for_it_and_starts(root, architecture, program):
    """The daemon finds its own library in the folder that the package has for it."""
    machine, emulator = ARCHITECTURES[architecture]
    header = source_tree.run("readelf", "--file-header", root.path / program)
    assert re.search(rf"Machine: +{machine}$", header, re.MULTILINE), header
    option = "-v" if program.endswith("mdnsproxy") else "--version"
    assert source_tree.version() in source_tree.run(emulator, "-L", root.path, root.path / program, option)
