# SPDX-License-Identifier: MIT
"""The RPM package, built by Debian's rpmbuild, and what is in it. No system of that kind is here to install it on."""

import os
import re
import shutil

import pytest
import source_tree

SPEC = source_tree.ROOT / "packaging/rpm/mdnsproxy.spec"


@pytest.fixture(scope="module")
def package(tmp_path_factory):
    """The package's file. What is needed to build it is there, but no RPM package says so (--nodeps)."""
    top = tmp_path_factory.mktemp("rpm")
    tree = top / f"mdnsproxy-{source_tree.version()}"
    tree.mkdir()
    source_tree.export_to(tree)
    (top / "SOURCES").mkdir()
    source_tree.run("tar", "-C", top, "-czf", top / "SOURCES" / f"{tree.name}.tar.gz", tree.name)
    launcher = {"CMAKE_CXX_COMPILER_LAUNCHER": "ccache"} if shutil.which("ccache") else {}
    source_tree.run("nice", "-n", "19", "rpmbuild", "-bb", "--nodeps", "--define", f"_topdir {top}", SPEC,
                    env={**os.environ, **launcher})
    return next((top / "RPMS").rglob(f"mdnsproxy-{source_tree.version()}-1.*.rpm"))


@pytest.fixture(scope="module")
def unpacked(package, tmp_path_factory):  # pylint: disable=redefined-outer-name
    folder = tmp_path_factory.mktemp("unpacked")
    source_tree.run("rpm2archive", package)  # beside it
    source_tree.run("tar", "-C", folder, "-xzf", f"{package}.tgz")
    return folder


# pylint: disable=redefined-outer-name


def test_the_version_is_the_projects():
    assert re.search(r"^Version: +(\S+)", SPEC.read_text(encoding="utf-8"), re.MULTILINE)[1] == source_tree.version()


def test_what_an_administrator_writes_is_kept(package):
    shown = source_tree.run("rpm", "-qp", "--configfiles", package).split()
    assert shown == ["/etc/mdnsproxy.conf", "/etc/mdnsproxyrule-list.xml", "/etc/mdnsservice-list.xml"]


def test_the_library_is_nobody_elses(package):
    assert "libdns_sd" not in source_tree.run("rpm", "-qp", "--provides", package)
    assert "libdns_sd" not in source_tree.run("rpm", "-qp", "--requires", package)


def test_every_program_of_the_unit_is_in_it(unpacked):
    unit = next(unpacked.rglob("mdnsproxy.service")).read_text(encoding="utf-8")
    programs = re.findall(r"(?<=[= ])/usr/s?bin/[\w-]+", unit)
    assert len(programs) == 3
    assert [path for path in programs if not os.access(unpacked / path[1:], os.X_OK)] == []


def test_the_daemon_looks_for_its_library_where_it_is(unpacked):
    dynamic = source_tree.run("readelf", "-d", unpacked / "usr/sbin/mdnsproxy")
    folder = re.search(r"RUNPATH\) .*\[(/.*)\]", dynamic)[1]
    assert (unpacked / folder[1:] / "libdns_sd.so.1").exists()


def test_the_manual_and_the_examples_are_in_it(unpacked):
    for name in ("mdnsproxy.8", "mdnsproxy-check.1", "mdnsproxy-rules.5", "mdnsproxy-services.5", "mdnsproxy.conf.5",
                 "mdnsproxyctl.1", "mdnsproxy-metrics.timer", "_mdnsproxyctl", "print-to-guests.xml",
                 "10-mdnsproxy.conf", "LICENSE"):
        assert list(unpacked.rglob(f"{name}*")), name
