# SPDX-License-Identifier: MIT
"""What the library exports, and what it links."""

import os
import re
import subprocess

LIBRARY = os.environ["DNS_SD_LIBRARY"]
HEADER = "/usr/include/avahi-compat-libdns_sd/dns_sd.h"
OURS = {"DNSServiceBrowse", "DNSServiceCreateConnection", "DNSServiceProcessResult", "DNSServiceQueryRecord",
        "DNSServiceRefDeallocate", "DNSServiceRefSockFD", "DNSServiceRegister", "DNSServiceRegisterRecord",
        "DNSServiceRemoveRecord", "DNSServiceResolve", "DNSServiceUpdateRecord"}
CALLED_BY_AVAHI = {"avahi_key_equal", "avahi_key_is_pattern", "avahi_response_scheduler_incoming"}


def output(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def exported():
    return {line.split()[-1] for line in output("nm", "-D", "--defined-only", LIBRARY).splitlines()}


def test_exactly_the_functions_that_it_has_are_exported():
    # A sanitized or profiled build adds its own markers; ours are no more and no less than these.
    assert {name for name in exported() if not name.startswith("__")} == OURS | CALLED_BY_AVAHI


def test_what_avahi_calls_is_still_called_by_it():
    core = next(path for path in re.findall(r"=> (\S+)", output("ldd", LIBRARY)) if "libavahi-core" in path)
    undefined_or_exported = {line.split()[-1] for line in output("nm", "-D", core).splitlines()}
    assert CALLED_BY_AVAHI <= undefined_or_exported


def test_every_exported_function_is_declared_in_dns_sd_h():
    with open(HEADER, encoding="latin-1") as header:
        declared = set(re.findall(r"DNSSD_API (\w+)", header.read()))
    assert OURS <= declared


def test_its_name_is_the_one_that_programs_look_for():
    assert "[libdns_sd.so.1]" in output("readelf", "-d", LIBRARY)


def test_it_stands_on_avahis_core_and_not_on_its_daemon():
    needed = set(re.findall(r"\(NEEDED\).*\[(.+?)\]", output("readelf", "-d", LIBRARY)))
    assert any(name.startswith("libavahi-core") for name in needed)
    assert not any("client" in name or "dbus" in name or "dns_sd" in name for name in needed)
