# SPDX-License-Identifier: MIT
"""Register: services of other hosts, their names, and who has to give way."""

import time

import pytest

import driver as d
from testbed import dns, stays_true, wait_until


def registered(driver, name, count=1):
    return d.text_of(driver.wait(name, count)[count - 1].fields[0])


def test_the_reply_says_what_was_registered(link):
    publisher = link.publisher()
    assert publisher.register("reg", link.near_index, "My Printer") == 0
    reply = publisher.wait("reg")[0]
    assert reply.flags & 2 and reply.error == 0
    assert [d.text_of(field) for field in reply.fields] == ["My Printer", "_ipp._tcp.", "local."]


def test_a_single_service_is_visible_when_its_probes_are_through(link):
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    looker.browse("warm", link.far_index, "_warm._tcp")
    publisher.register("warm", link.near_index, "Warm", regtype="_warm._tcp")
    looker.wait("warm")
    before = time.monotonic()
    publisher.register("reg", link.near_index, "My Printer")
    # Random wait of up to 250 ms and three gaps of 250 ms (RFC 6762 section 8.1); the rest is for a busy machine.
    assert 0.7 < looker.wait("br")[0].time - before < 3


def test_the_type_is_enumerated_while_anything_of_it_is_registered(link):
    looker, publisher = link.looker(), link.publisher()
    looker.query("q", link.far_index, "_services._dns-sd._udp.local.", d.PTR)
    publisher.register("one", link.near_index, "One")
    assert bytes.fromhex(looker.wait("q")[0].fields[3]) == dns.encode_name("_ipp._tcp.local")
    publisher.register("two", link.near_index, "Two")
    publisher.wait("two")
    publisher.release("one")
    fresh = link.looker()
    fresh.query("q", link.far_index, "_services._dns-sd._udp.local.", d.PTR)
    fresh.wait("q")


def test_nothing_of_this_machine_is_published(link):
    looker, publisher = link.looker(), link.publisher()
    host = link.near.run("hostname").strip().split(".")[0]
    for name in (f"{host}.local.", "unused.local."):
        for rrtype in (d.A, d.AAAA):
            looker.query(f"{name}{rrtype}", link.far_index, name, rrtype)
    looker.browse("workstations", link.far_index, "_workstation._tcp")
    publisher.register("reg", link.near_index, "My Printer", host=None)
    looker.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    assert d.text_of(looker.wait("rs")[0].fields[1]) == f"{host}.local."
    assert {reply.name for reply in looker.replies} == {"rs"}


def test_a_machine_without_a_name_is_called_localhost(link):
    without_name = ("unshare", "--uts", "sh", "-c", 'echo >/proc/sys/kernel/hostname; exec "$@"', "sh")
    looker, publisher = link.looker(), link.publisher(prefix=without_name)
    publisher.register("reg", link.near_index, None, host=None)
    assert registered(publisher, "reg") == "localhost"
    looker.resolve("rs", link.far_index, "localhost", "_ipp._tcp")
    assert d.text_of(looker.wait("rs")[0].fields[1]) == "localhost.local."


@pytest.mark.parametrize("host", ["printer.local", "printer.local."])
def test_the_host_is_named_with_or_without_its_last_dot(link, host):
    looker, publisher = link.looker(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer", host=host)
    looker.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    assert d.text_of(looker.wait("rs")[0].fields[1]) == "printer.local."


def test_a_taken_name_is_counted_up(link):
    first, second = link.looker(), link.publisher()
    first.register("reg", link.far_index, "My Printer", host="first.local")
    assert registered(first, "reg") == "My Printer"
    second.register("reg", link.near_index, "My Printer", host="second.local")
    assert registered(second, "reg") == "My Printer (2)"
    second.register("third", link.near_index, "My Printer", host="third.local")
    assert registered(second, "third") == "My Printer (3)"
    assert len(first.of("reg")) == 1


def test_a_taken_name_of_full_length_is_cut_between_characters(link):
    first, second = link.looker(), link.publisher()
    name = "x" + "é" * 31  # 63 bytes
    first.register("reg", link.far_index, name, host="first.local")
    registered(first, "reg")
    second.register("reg", link.near_index, name, host="second.local")
    assert registered(second, "reg") == "x" + "é" * 29 + " (2)"


def test_the_service_of_the_winner_is_never_disturbed(link):
    looker, first, second = link.looker(), link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    first.register("reg", link.far_index, "My Printer", host="first.local")
    looker.wait("br")
    second.register("reg", link.near_index, "My Printer", host="second.local")
    registered(second, "reg")
    looker.wait("br", 2)
    second.release("reg")
    looker.wait("br", 3)
    assert [(d.add_flag(reply), d.text_of(reply.fields[0])) for reply in looker.of("br")] == [
        (True, "My Printer"), (True, "My Printer (2)"), (False, "My Printer (2)")]


def test_without_renaming_a_conflict_is_reported(link):
    first, second = link.looker(), link.publisher()
    first.register("reg", link.far_index, "My Printer", host="first.local")
    registered(first, "reg")
    assert second.register("reg", link.near_index, "My Printer", host="second.local",
                           flags=d.SHARE | d.NO_AUTO_RENAME) == 0
    reply = second.wait("reg")[0]
    assert reply.error == d.NAME_CONFLICT and not reply.flags & 2


def test_two_of_one_process_with_different_data_get_different_names(link):
    publisher = link.publisher()
    publisher.register("one", link.near_index, "My Printer", host="one.local")
    publisher.register("two", link.near_index, "My Printer", host="two.local")
    assert {registered(publisher, "one"), registered(publisher, "two")} == {"My Printer", "My Printer (2)"}


def test_two_identical_registrations_are_one_service_until_the_last_is_released(link):
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("one", link.near_index, "My Printer")
    publisher.register("two", link.near_index, "My Printer", regtype="_ipp._tcp,_universal")
    assert registered(publisher, "one") == registered(publisher, "two") == "My Printer"
    looker.wait("br")
    publisher.register("three", link.near_index, "My Printer")
    assert registered(publisher, "three") == "My Printer"
    for name in ("one", "three"):
        publisher.release(name)
    looker.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    looker.wait("rs")
    publisher.release("two")
    looker.wait("br", 2)
    assert [d.add_flag(reply) for reply in looker.of("br")] == [True, False]


def test_a_name_that_is_lost_later_is_given_up_for_another(own_link):
    link = own_link()
    looker, first, second = link.looker(), link.looker(), link.publisher()
    link.near.run("ip link set eth0 down")
    link.far.run("ip link set eth0 down")
    first.register("reg", link.far_index, "My Printer", host="first.local")
    second.register("reg", link.near_index, "My Printer", host="second.local")
    assert registered(first, "reg") == registered(second, "reg") == "My Printer"
    looker.browse("br", link.far_index, "_ipp._tcp")
    link.far.run("ip link set eth0 up")
    link.near.run("ip link set eth0 up")
    wait_until(lambda: len(first.of("reg")) + len(second.of("reg")) >= 3, 30, "one of the two to be renamed")
    assert {registered(first, "reg", len(first.of("reg"))), registered(second, "reg", len(second.of("reg")))} == {
        "My Printer", "My Printer (2)"}
    wait_until(lambda: {d.text_of(reply.fields[0]) for reply in looker.of("br")} >= {"My Printer", "My Printer (2)"},
               d.DEADLINE, "both names to be found")


def test_a_long_name_is_cut_unless_it_may_not_be(link):
    publisher = link.publisher()
    assert publisher.register("reg", link.near_index, "y" * 70) == 0
    assert registered(publisher, "reg") == "y" * 63
    assert publisher.register("no", link.near_index, "y" * 70, flags=d.SHARE | d.NO_AUTO_RENAME) == d.BAD_PARAM


def test_a_service_without_a_port_keeps_its_name_but_is_not_found(link):
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("placeholder", link.near_index, "My Printer", port=0)
    assert registered(publisher, "placeholder") == "My Printer"
    looker.register("reg", link.far_index, "My Printer", host="other.local")
    assert registered(looker, "reg") == "My Printer (2)"
    looker.wait("br")
    assert {d.text_of(reply.fields[0]) for reply in looker.of("br")} == {"My Printer (2)"}


def test_new_txt_data_replaces_the_old(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer", txt=b"\x01a")
    looker.query("q", link.far_index, "My\\032Printer._ipp._tcp.local.", d.TXT)
    looker.wait("q")
    assert publisher.update("reg", b"\x01b") == 0
    assert bytes.fromhex(looker.wait("q", 2)[1].fields[3]) == b"\x01b"
    assert publisher.update("reg", b"\x05b") == d.BAD_PARAM
    stays_true(lambda: len(looker.of("q")) == 2, 2, "nothing more is told")  # and the old data is forgotten meanwhile
    fresh = link.looker()
    fresh.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    assert fresh.wait("rs")[0].fields[3] == b"\x01b".hex()


def test_a_registration_with_the_data_that_another_was_given_later_is_the_same_service(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.register("one", link.near_index, "My Printer", txt=b"\x01a")
    registered(publisher, "one")
    assert publisher.update("one", b"\x01b") == 0
    publisher.register("two", link.near_index, "My Printer", txt=b"\x01b")
    assert registered(publisher, "two") == "My Printer"
    publisher.release("one")
    looker.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    assert looker.wait("rs")[0].fields[3] == b"\x01b".hex()


def test_an_update_for_one_of_two_leaves_the_other_its_service(link):
    looker, publisher = link.looker(), link.publisher()
    for name in ("one", "two"):
        publisher.register(name, link.near_index, "My Printer", txt=b"\x01a")
    assert registered(publisher, "one") == registered(publisher, "two") == "My Printer"
    assert publisher.update("two", b"\x01b") == 0
    assert registered(publisher, "two", 2) == "My Printer (2)"
    for name, txt in (("My Printer", b"\x01a"), ("My Printer (2)", b"\x01b")):
        looker.resolve(name, link.far_index, name, "_ipp._tcp")
        assert looker.wait(name)[0].fields[3] == txt.hex()
    assert len(publisher.of("one")) == 1


def test_txt_data_may_change_before_the_name_is_established(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer", txt=b"\x01a")
    assert publisher.update("reg", b"\x01b") == 0
    registered(publisher, "reg")
    looker.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    assert looker.wait("rs")[0].fields[3] == b"\x01b".hex()


def test_a_service_that_is_released_and_registered_with_other_data_keeps_its_name(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer", port=1)
    registered(publisher, "reg")
    publisher.release("reg")
    publisher.register("again", link.near_index, "My Printer", port=2)
    assert registered(publisher, "again") == "My Printer"
    looker.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    assert int(looker.wait("rs")[0].fields[2]) == 2
