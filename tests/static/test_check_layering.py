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
    found = breaches(tmp_path, src__mdns__state__a='#include "mdns/mdns.h"\n#include "dnssd/poll.h"\n',
                     src__dnssd__b='#include "mdns/mdns.h"\n', src__proxy__c='#include "mdns/mdns.h"\n')
    assert [line.split(":")[0] for line in found] == ["src/mdns/state/a.cpp", "src/proxy/c.cpp"]


def test_a_scanner_may_include_only_scanners(tmp_path):
    found = breaches(tmp_path, src__config__a_scanner='#include "config/b_scanner.h"\n#include "runtime/log.h"\n')
    assert found == ['src/config/a_scanner.cpp:2: includes "runtime/log.h": a scanner needs nothing of the daemon']


def test_the_c_interfaces_stay_in_their_folders(tmp_path):
    found = breaches(tmp_path, src__dnssd__a="#include <ini.h>\n", src__config__b="#include <dns_sd.h>\n",
                     src__proxy__c="#include <dns_sd.h>\n", src__runtime__d="#include <uthash.h>\n")
    assert [line.split(":")[0] for line in found] == ["src/config/b.cpp", "src/dnssd/a.cpp", "src/runtime/d.cpp"]


def test_an_unknown_folder_is_a_breach(tmp_path):
    assert breaches(tmp_path, src__proxy__a='#include "misc/x.h"\n') != []


def test_the_engine_has_layers_too(tmp_path):
    found = breaches(tmp_path, src__mdns__state__a='#include "mdns/store/cache.h"\n',
                     src__mdns__link='#include "mdns/store/cache.h"\n', src__mdns__wire__b='#include "mdns/misc/x.h"\n',
                     src__mdns__exchange__c='#include "mdns/mdns.h"\n#include "mdns/link.h"\n')
    assert found == ['src/mdns/exchange/c.cpp:2: includes "mdns/link.h": \'link.h\' is no layer of mdns',
                     'src/mdns/state/a.cpp:1: includes "mdns/store/cache.h": state is below store',
                     'src/mdns/wire/b.cpp:1: includes "mdns/misc/x.h": \'misc\' is no layer of mdns']


def test_only_the_interface_of_the_engine_is_for_the_dns_sd_library(tmp_path):
    found = breaches(tmp_path, src__dnssd__a='#include "mdns/mdns.h"\n#include "mdns/wire/name.h"\n',
                     src__dnssd__b='#include "mdns/state/link.h"\n')
    assert found == ['src/dnssd/b.cpp:1: includes "mdns/state/link.h": it is inside mdns']


def test_subjects_that_include_each_other_are_a_breach(tmp_path):
    headers = {"a.h": '#include "proxy/b.h"\n', "b.h": "", "c.h": "", "d.h": '#include "proxy/a.h"\n'}
    for name, content in headers.items():
        (tmp_path / "src/proxy").mkdir(parents=True, exist_ok=True)
        (tmp_path / "src/proxy" / name).write_text(content, encoding="utf-8")
    found = breaches(tmp_path, src__proxy__b='#include "proxy/b.h"\n#include "proxy/c.h"\n',
                     src__proxy__c='#include "proxy/c.h"\n#include "proxy/a.h"\n')
    assert found == ['src/proxy/a.h:1: includes "proxy/b.h", which includes it in turn',
                     'src/proxy/b.cpp:2: includes "proxy/c.h", which includes it in turn',
                     'src/proxy/c.cpp:2: includes "proxy/a.h", which includes it in turn']
