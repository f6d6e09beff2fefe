# SPDX-License-Identifier: MIT
"""What the library exports, and what it links."""

import os
import pathlib
import re
import subprocess

LIBRARY = os.environ["DNS_SD_LIBRARY"]
HEADER = pathlib.Path(__file__).resolve().parents[2] / "src/dnssd/include/dns_sd.h"
OURS = {"DNSServiceBrowse", "DNSServiceCreateConnection", "DNSServiceProcessResult", "DNSServiceQueryRecord",
        "DNSServiceRefDeallocate", "DNSServiceRefSockFD", "DNSServiceRegister", "DNSServiceRegisterRecord",
        "DNSServiceRemoveRecord", "DNSServiceResolve", "DNSServiceUpdateRecord"}
BEYOND = {"dns_sd_link_figures"}  # of no other library


def output(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def exported():
    return {line.split()[-1] for line in output("nm", "-D", "--defined-only", LIBRARY).splitlines()}


def test_exactly_the_functions_that_it_has_are_exported():
    # A sanitized or profiled build adds its own markers; ours are no more and no less than these.
    assert {name for name in exported() if not name.startswith("__")} == OURS | BEYOND


def test_exactly_the_exported_functions_are_declared_in_dns_sd_h():
    assert set(re.findall(r"^\w+ DNSSD_API (\w+)", HEADER.read_text(encoding="utf-8"), re.MULTILINE)) == OURS


def test_its_name_is_the_one_that_programs_look_for():
    assert "[libdns_sd.so.1]" in output("readelf", "-d", LIBRARY)


def test_it_stands_on_the_system_alone():
    """No library of another responder, nor of a client of one, is loaded with it."""
    loaded = set(re.findall(r"^\s*(lib[\w+-]+)\.so", output("ldd", LIBRARY), re.MULTILINE))
    assert loaded <= {"libc", "libm", "libgcc_s", "libstdc++", "libpthread"} | {name for name in loaded
                                                                                if "san" in name}
