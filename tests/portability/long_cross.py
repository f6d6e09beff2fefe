# SPDX-License-Identifier: MIT
"""Builds for other processors. The unit tests of the engine and of the DNS-SD library, and simulated lives, run under
qemu-user. s390x is big-endian."""

import re

import pytest
import source_tree
from built import Built

ARCHITECTURES = {"arm64": "AArch64", "armhf": "ARM", "s390x": "IBM S/390"}
EMULATORS = {"arm64": ("qemu-aarch64-static", "aarch64-linux-gnu"), "armhf": ("qemu-arm-static", "arm-linux-gnueabihf"),
             "s390x": ("qemu-s390x-static", "s390x-linux-gnu")}
UNIT_TESTS = ("mdns_unit_test", "dnssd_unit_test")
FIRST_LIFE, LIVES = 700001, 50  # a life takes up to six seconds where the processor is emulated


@pytest.fixture(scope="module", params=ARCHITECTURES)
def built(request):
    source_tree.run(source_tree.ROOT / "tools/dev/foreign-root", request.param)
    toolchain = source_tree.ROOT / "cmake/toolchains" / f"{request.param}.cmake"
    made = Built(request.param, f"-DCMAKE_TOOLCHAIN_FILE={toolchain}")
    made.make("mdnsproxy", "mdnsproxy-check", "dns_sd", *UNIT_TESTS, "simulate")
    return made


# pylint: disable=redefined-outer-name


def test_programs_and_library_are_for_it(built):
    for name in ("mdnsproxy", "mdnsproxy-check", "libdns_sd.so.1"):
        header = source_tree.run("readelf", "--file-header", built.path / name)
        assert re.search(rf"Machine: +{ARCHITECTURES[built.path.name]}$", header, re.MULTILINE), header


@pytest.mark.parametrize("program", UNIT_TESTS)
def test_the_unit_tests_pass(built, program):
    emulator, triplet = EMULATORS[built.path.name]
    source_tree.run(emulator, "-L", f"/usr/{triplet}", built.path / "tests" / program, "--gtest_brief=1")


def test_simulated_lives_keep_every_invariant(built):
    """The exit status says so. A seed may live another life than elsewhere: hash tables have an order of their own."""
    emulator, triplet = EMULATORS[built.path.name]
    print(source_tree.run(emulator, "-L", f"/usr/{triplet}", built.path / "tests/simulate", FIRST_LIFE, LIVES))
