# SPDX-License-Identifier: MIT
"""The layering check finds what it is for, and nothing else."""

import check_layering


def breaches(tmp_path, **files):
    """Files by name, with __ for a slash: what the check says about a tree that holds them."""
    for name, content in files.items():
        path = tmp_path / (name.replace("__", "/") + ".cpp")
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(content, encoding="utf-8")
    return [f"{path}:{number}: {text}" for path, number, text in check_layering.breaches(tmp_path)]


def test_a_lower_folder_that_includes_a_higher_one_is_a_breach(tmp_path):
    assert breaches(tmp_path, src__tables__a='#include <cstdio>\n#include "proxy/proxy.h"\n') == [
        'src/tables/a.cpp:2: includes "proxy/proxy.h": tables is below proxy']


def test_a_higher_folder_may_include_every_lower_one(tmp_path):
    lower = "".join(f'#include "{folder}/x.h"\n' for folder in ("platform", "runtime", "tables", "proxy", "config"))
    assert breaches(tmp_path, src__config__a=lower, src__main=lower) == []


def test_the_dns_sd_library_and_the_rest_do_not_know_each_other(tmp_path):
    found = breaches(tmp_path, src__dnssd__a='#include "platform/zmk.h"\n', src__proxy__b='#include "dnssd/engine.h"\n')
    assert [line.split(":")[0] for line in found] == ["src/dnssd/a.cpp", "src/proxy/b.cpp"]


def test_multicast_dns_stands_on_nothing_and_the_dns_sd_library_on_it(tmp_path):
    found = breaches(tmp_path, src__mdns__a='#include "mdns/mdns.h"\n#include "dnssd/poll.h"\n',
                     src__dnssd__b='#include "mdns/mdns.h"\n', src__proxy__c='#include "mdns/mdns.h"\n')
    assert [line.split(":")[0] for line in found] == ["src/mdns/a.cpp", "src/proxy/c.cpp"]


def test_a_scanner_may_include_only_scanners(tmp_path):
    found = breaches(tmp_path, src__config__a_scanner='#include "config/b_scanner.h"\n#include "runtime/log.h"\n')
    assert found == ['src/config/a_scanner.cpp:2: includes "runtime/log.h": a scanner needs nothing of the daemon']


def test_the_c_interfaces_stay_in_their_folders(tmp_path):
    found = breaches(tmp_path, src__dnssd__a="#include <ini.h>\n", src__config__b="#include <dns_sd.h>\n",
                     src__proxy__c="#include <dns_sd.h>\n", src__runtime__d="#include <uthash.h>\n")
    assert [line.split(":")[0] for line in found] == ["src/config/b.cpp", "src/dnssd/a.cpp", "src/runtime/d.cpp"]


def test_an_unknown_folder_is_a_breach(tmp_path):
    assert breaches(tmp_path, src__proxy__a='#include "misc/x.h"\n') != []
