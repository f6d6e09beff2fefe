# SPDX-License-Identifier: MIT
"""Builds with options that another system may need."""

import pathlib

import source_tree
from built import Built

ANOTHER = pathlib.Path("/var/cache/mdnsproxy-dev/libavahi-compat-libdnssd-dev/usr/include/avahi-compat-libdns_sd")


def test_another_dns_sd_h_does_as_well():
    built = Built("header", "-DMDNSPROXY_INSTALLED_DNS_SD_H=ON", f"-DDNS_SD_INCLUDE_DIR={ANOTHER}")
    built.make("mdnsproxy", "dns_sd", "dnssd_unit_test", "proxy_test")
    dependencies = source_tree.run("ninja", "-C", built.path, "-t", "deps")
    assert f"{ANOTHER}/dns_sd.h" in dependencies
    assert f"{source_tree.ROOT}/src/dnssd/include" not in dependencies
    source_tree.run(built.path / "tests/dnssd_unit_test", "--gtest_brief=1")
    source_tree.run(built.path / "tests/proxy_test", "--gtest_brief=1")


def test_a_c_library_without_backtraces_does_as_well():
    built = Built("backtrace", "-DMDNSPROXY_HAVE_BACKTRACE=OFF")
    built.make("mdnsproxy", "dns_sd", "platform_test", "runtime_test")
    assert "backtrace" not in source_tree.run("nm", "-D", "--undefined-only", built.path / "mdnsproxy")
    for test in ("platform_test", "runtime_test"):
        source_tree.run(built.path / "tests" / test, "--gtest_brief=1")
