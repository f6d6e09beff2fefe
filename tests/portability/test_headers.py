# SPDX-License-Identifier: MIT
"""dns_sd.h: ours for any compiler and for C, and another one in its place."""

import pathlib

import pytest
import source_tree

OURS = source_tree.ROOT / "src/dnssd/include"
# Unpacked by tools/dev/install-packages, since nothing of that package is needed but this.
ANOTHER = pathlib.Path("/var/cache/mdnsproxy-dev/libavahi-compat-libdnssd-dev/usr/include/avahi-compat-libdns_sd")
STRICT = ("-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Werror", "-fsyntax-only")
PROGRAM = "#include <dns_sd.h>\nint main(void) { DNSServiceRefDeallocate(0); return kDNSServiceErr_NoError; }\n"


COMPILERS = (("gcc", "-std=c99"), ("g++", "-std=c++11"), ("clang", "-std=c99"), ("clang++", "-std=c++11"))


@pytest.mark.parametrize("compiler", COMPILERS, ids=" ".join)
def test_it_is_for_c_and_every_cpp(compiler, tmp_path):
    source = tmp_path / ("program.c" if compiler[1] == "-std=c99" else "program.cpp")
    source.write_text(PROGRAM)
    source_tree.run(*compiler, *STRICT, "-I", OURS, source)


@pytest.mark.parametrize("folder", (OURS, ANOTHER), ids=("ours", "another"))
def test_its_values_and_types_are_the_usual_ones(folder):
    """interface_test.cpp compares them when it is compiled."""
    assert (folder / "dns_sd.h").is_file()
    options = [] if folder == OURS else ["-DMDNSPROXY_INSTALLED_DNS_SD_H"]
    source_tree.run("g++", "-std=c++20", "-fsyntax-only", "-Werror", *options, "-isystem", folder,
                    "-I", source_tree.ROOT / "src", source_tree.ROOT / "tests/dnssd/interface_test.cpp")
