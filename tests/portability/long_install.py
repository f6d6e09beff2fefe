# SPDX-License-Identifier: MIT
"""An installation at another place, as a distribution of another kind has it, in a staging folder."""

import os
import re

import pytest
import source_tree
from built import Built

PREFIX = "/opt/mdns"


@pytest.fixture(scope="module")
def built():
    made = Built("install", f"-DCMAKE_INSTALL_PREFIX={PREFIX}", "-DCMAKE_INSTALL_LIBDIR=lib64",
                 "-DCMAKE_INSTALL_SBINDIR=bin", "-DCMAKE_INSTALL_SYSCONFDIR=/etc",
                 "-DMDNSPROXY_UNIT_DIR=/etc/systemd/system", "-DMDNSPROXY_SYSCTL_DIR=/etc/sysctl.d",
                 "-DBUILD_TESTING=OFF")
    made.make()
    return made


@pytest.fixture(scope="module")
def staged(built, tmp_path_factory):  # pylint: disable=redefined-outer-name
    root = tmp_path_factory.mktemp("staged")
    built.install(root)
    return root


# pylint: disable=redefined-outer-name


def files(root):
    return sorted("/" + os.path.relpath(path, root) for path in root.rglob("*") if not path.is_dir())


def test_everything_is_where_it_was_told_to_be(staged):
    examples = ("cast-to-meeting-room.xml", "file-servers-both-ways.xml", "mdnsproxy.conf", "mdnsservice-list.xml",
                "print-to-guests.xml")
    assert files(staged) == sorted([
        f"{PREFIX}/bin/mdnsproxy", f"{PREFIX}/bin/mdnsproxy-check", f"{PREFIX}/bin/mdnsproxyctl",
        f"{PREFIX}/share/bash-completion/completions/mdnsproxyctl", f"{PREFIX}/share/zsh/site-functions/_mdnsproxyctl",
        f"{PREFIX}/lib64/mdnsproxy/libdns_sd.so.1", f"{PREFIX}/lib64/mdnsproxy/libdns_sd.so.1.0.0",
        *(f"{PREFIX}/share/man/man{page[-1]}/{page}" for page in (
            "mdnsproxy-check.1", "mdnsproxy-rules.5", "mdnsproxy-services.5", "mdnsproxy.conf.5", "mdnsproxy.8",
            "mdnsproxyctl.1")),
        *(f"{PREFIX}/share/doc/mdnsproxy/examples/{name}" for name in examples),
        "/etc/mdnsproxy.conf", "/etc/mdnsproxyrule-list.xml", "/etc/mdnsservice-list.xml",
        "/etc/sysctl.d/10-mdnsproxy.conf",
        *(f"/etc/systemd/system/{unit}" for unit in (
            "mdnsproxy-interface@.service", "mdnsproxy-metrics.service", "mdnsproxy-metrics.timer",
            "mdnsproxy.service"))])


def test_no_text_names_another_place(staged):
    """What it names of its own is there; nothing is looked for below /usr or /bin, and no name was left open."""
    for name in files(staged):
        data = (staged / name[1:]).read_bytes()
        if data.startswith(b"\x7fELF"):
            continue
        text = data.decode()
        assert re.findall(r"/usr\b|(?<![\w/])/s?bin/|@CMAKE\w*", text) == [], name
        for named in re.findall(rf"{PREFIX}[\w./-]*\w", text):
            assert (staged / named[1:]).exists(), f"{name} names {named}"


def test_the_unit_starts_what_is_installed(staged):
    unit = (staged / "etc/systemd/system/mdnsproxy.service").read_text(encoding="utf-8")
    assert re.findall(rf"{PREFIX}/bin/[\w-]+", unit) == [
        f"{PREFIX}/bin/mdnsproxy-check", f"{PREFIX}/bin/mdnsproxy", f"{PREFIX}/bin/mdnsproxy-check"]


def test_the_daemon_finds_its_library(staged):
    """By its RUNPATH, seen in a mount namespace where the staged folder is in its place."""
    dynamic = source_tree.run("readelf", "-d", staged / f"{PREFIX[1:]}/bin/mdnsproxy")
    assert re.search(rf"RUNPATH\) .*\[{PREFIX}/lib64/mdnsproxy\]", dynamic), dynamic
    script = """mount -t tmpfs tmpfs /opt && mkdir /opt/mdns && mount --bind "$0" /opt/mdns
                exec /opt/mdns/bin/mdnsproxy -v"""
    shown = source_tree.run("unshare", "--mount", "sh", "-c", script, staged / PREFIX[1:])
    assert f"version {source_tree.version()}" in shown


def test_the_header_is_for_who_asks_for_it(built, tmp_path):
    source_tree.run("cmake", "--install", built.path, "--component", "development",
                    env={**os.environ, "DESTDIR": str(tmp_path)})
    assert files(tmp_path) == [f"{PREFIX}/include/mdnsproxy/dns_sd.h"]
