# SPDX-License-Identifier: MIT
"""Browse: who is reported, once when first seen and once when last lost."""

import pytest

import driver as d
from testbed import dns


def names(driver, name):
    return [(d.add_flag(reply), d.text_of(reply.fields[0])) for reply in driver.of(name)]


def test_an_instance_is_added_once_and_removed_once_over_two_protocols(link):
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    assert publisher.register("reg", link.near_index, "My Printer") == 0
    added = looker.wait("br")[0]
    publisher.release("reg")
    looker.wait("br", 2)
    publisher.register("other", link.near_index, "Other")
    looker.wait("br", 3)
    assert names(looker, "br") == [(True, "My Printer"), (False, "My Printer"), (True, "Other")]
    assert added.error == 0 and added.interface == link.far_index
    assert [d.text_of(field) for field in added.fields[1:]] == ["_ipp._tcp.", "local."]


@pytest.mark.parametrize("name", ["a.b", "back\\slash", "Büro im 2. Stock", "x" * 63, "tab\tin", " blank ends ",
                                  "日本語"])
def test_any_name_arrives_as_it_was_given(link, name):
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, name)
    assert d.text_of(looker.wait("br")[0].fields[0]) == name
    assert d.text_of(publisher.wait("reg")[0].fields[0]) == name


@pytest.mark.parametrize("regtype", ["_universal._ipp._tcp", "_ipp._tcp,_universal"])
def test_a_subtype_is_browsed_for_and_reported_with_its_main_type(link, regtype):
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, regtype)
    publisher.register("plain", link.near_index, "Plain")
    publisher.register("universal", link.near_index, "Universal", regtype="_ipp._tcp,_universal")
    publisher.wait("plain")
    reply = looker.wait("br")[0]
    assert [d.text_of(field) for field in reply.fields] == ["Universal", "_ipp._tcp.", "local."]
    publisher.release("universal")
    looker.wait("br", 2)
    assert [name for _, name in names(looker, "br")] == ["Universal", "Universal"]


@pytest.mark.parametrize("domain", [None, "local", "local."])
def test_the_local_domain_may_be_meant_or_said(link, domain):
    looker, publisher = link.looker(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer")
    publisher.wait("reg")
    assert looker.browse("br", link.far_index, "_ipp._tcp", domain) == 0
    looker.wait("br")


def test_a_later_browse_is_answered_from_what_is_known(link):
    looker, publisher = link.looker(), link.publisher()
    looker.browse("first", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    looker.wait("first")
    looker.browse("second", link.far_index, "_ipp._tcp")
    assert d.add_flag(looker.wait("second")[0])


def test_an_operation_may_stand_by_itself(link):
    looker, publisher = link.looker(connect=False), link.publisher()
    assert looker.browse("br", link.far_index, "_ipp._tcp", connection="-", flags=0) == 0
    publisher.register("reg", link.near_index, "My Printer")
    looker.wait("br")
    assert looker.do("socket", "br") > 0
    looker.release("br")
    assert looker.do("socket", "br") == -1


def test_replies_in_a_queue_say_that_more_is_coming(link):
    looker, publisher = link.looker(), link.publisher()
    for i in range(5):
        publisher.register(f"reg{i}", link.near_index, f"Printer {i}")
    for i in range(5):
        publisher.wait(f"reg{i}")
    looker.browse("first", link.far_index, "_ipp._tcp")
    looker.wait("first", 5)
    looker.browse("second", link.far_index, "_ipp._tcp")  # its five replies come of one walk through the cache
    replies = looker.wait("second", 5)
    assert [reply.flags & 1 for reply in replies] == [1, 1, 1, 1, 0]


def test_a_caller_that_serves_one_connection_first_starves_no_other(link):
    looker, publisher = link.looker(), link.publisher()
    looker.connect("zz")  # the driver always serves the first live reference, "aa"
    looker.connect("aa")
    looker.browse("one", link.far_index, "_ipp._tcp", connection="aa")
    looker.browse("two", link.far_index, "_ipp._tcp", connection="zz")
    for i in range(20):
        publisher.register(f"reg{i}", link.near_index, f"Printer {i}")
    looker.wait("one", 20)
    looker.wait("two", 20)
    order = [reply.name for reply in looker.replies if reply.kind == "browse"]
    assert order[:20].count("two") >= 5  # they alternate, as the replies arose


def test_the_type_of_another_service_is_not_reported(link):
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("scanner", link.near_index, "Scanner", regtype="_uscan._tcp")
    publisher.wait("scanner")
    publisher.register("printer", link.near_index, "Printer")
    looker.wait("br")
    assert names(looker, "br") == [(True, "Printer")]


def test_a_service_that_comes_back_is_added_again(link):
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    for count in (1, 3):
        publisher.register("reg", link.near_index, "My Printer")
        looker.wait("br", count)
        publisher.release("reg")
        looker.wait("br", count + 1)
    assert [added for added, _ in names(looker, "br")] == [True, False, True, False]


def test_an_instance_goes_by_the_name_that_it_came_by(link):
    # The caller compares bytes; DNS does not (RFC 6762 section 16).
    air, looker = link.air(), link.publisher()
    looker.browse("br", link.near_index, "_ipp._tcp")
    kind = dns.labels("_ipp._tcp.local")
    air.say(dns.Record(kind, dns.PTR, (b"Office Printer", *kind), 4500))
    looker.wait("br")
    air.say(dns.Record(kind, dns.PTR, (b"office PRINTER", *kind), 0))
    looker.wait("br", 2)
    assert names(looker, "br") == [(True, "Office Printer"), (False, "Office Printer")]


def test_own_services_are_found_on_the_same_interface(link):
    driver = link.publisher()
    driver.browse("br", link.near_index, "_ipp._tcp")
    driver.register("reg", link.near_index, "My Printer")
    assert d.text_of(driver.wait("br")[0].fields[0]) == "My Printer"
