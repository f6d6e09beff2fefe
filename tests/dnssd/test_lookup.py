# SPDX-License-Identifier: MIT
"""Resolve and query: what a name leads to, and what of it is reported."""

import time

import driver as d
from testbed import dns, stays_true


def answers(driver, name):
    return [bytes.fromhex(reply.fields[3]) for reply in driver.of(name)]


def v4(last):
    return bytes([10, 9, 0, last])


def v6(last):
    return bytes([0xFD, 9] + [0] * 13 + [last])


def settle(driver, name, link_index, publisher, near_index):
    """Waits until whatever was on its way has come: a record of another name, sent after it, has arrived."""
    marker = f"marker{time.monotonic_ns()}.local."
    driver.query(name, link_index, marker, d.TXT)
    publisher.record(name, near_index, marker, d.TXT, b"\x01m")
    driver.wait(name)


def test_a_service_is_resolved_to_host_port_and_txt(link):
    looker, publisher = link.looker(), link.publisher()
    txt = dns.txt_data(["rp=print", "note=2. Stock", "flag"])
    publisher.register("reg", link.near_index, "Dr. Smith\\x", host="My\\.Host\\032x.local", port=9100, txt=txt)
    publisher.wait("reg")
    assert looker.resolve("rs", link.far_index, "Dr. Smith\\x", "_ipp._tcp.", "local.") == 0
    reply = looker.wait("rs")[0]
    assert d.text_of(reply.fields[0]) == "Dr\\.\\032Smith\\\\x._ipp._tcp.local."
    assert d.text_of(reply.fields[1]) == "My\\.Host\\032x.local."
    assert int(reply.fields[2]) == 9100
    assert bytes.fromhex(reply.fields[3]) == txt
    assert reply.interface == link.far_index and reply.error == 0


def test_an_empty_txt_record_is_one_zero_byte(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer", txt=None)
    publisher.wait("reg")
    looker.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    assert looker.wait("rs")[0].fields[3] == "00"


def test_a_resolve_without_an_answer_keeps_trying(link):
    looker, publisher = link.looker(), link.publisher()
    looker.resolve("rs", link.far_index, "Late", "_ipp._tcp")
    stays_true(lambda: looker.of("rs") == [], 6, "no answer")  # after which other resolvers give up
    publisher.register("reg", link.near_index, "Late")
    looker.wait("rs")


def test_a_resolve_tells_of_changes_and_of_nothing_twice(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer", txt=b"\x01a")
    looker.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    looker.wait("rs")
    publisher.wait("reg")
    assert publisher.update("reg", b"\x01b") == 0
    looker.wait("rs", 2)
    settle(looker, "m1", link.far_index, publisher, link.near_index)
    assert [reply.fields[3] for reply in looker.of("rs")] == ["0161", "0162"]


def test_an_address_is_told_with_type_class_and_ttl(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.record("r", link.near_index, "printer.local", d.A, v4(7))
    publisher.record("r6", link.near_index, "printer.local", d.AAAA, v6(7))
    looker.query("q", link.far_index, "PRINTER.local", d.A)
    looker.query("q6", link.far_index, "printer.local.", d.AAAA)
    reply, reply6 = looker.wait("q")[0], looker.wait("q6")[0]
    assert reply.fields[1:] == ["1", "1", v4(7).hex(), "120"] and d.add_flag(reply)
    assert reply6.fields[1:] == ["28", "1", v6(7).hex(), "120"]
    assert d.text_of(reply6.fields[0]) == "printer.local."


def test_a_changed_address_is_one_answer(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.record("r", link.near_index, "printer.local.", d.A, v4(7))
    looker.query("q", link.far_index, "printer.local.", d.A)
    looker.wait("q")
    changed = time.monotonic()
    assert publisher.update("r", v4(8)) == 0
    assert looker.wait("q", 2)[1].time - changed < 2
    settle(looker, "m1", link.far_index, publisher, link.near_index)
    # While the old address is forgotten.
    stays_true(lambda: answers(looker, "q") == [v4(7), v4(8)], 2, "both are told once")


def test_the_loss_of_one_of_two_addresses_is_followed_by_the_other(link):
    looker, publisher = link.looker(), link.publisher()
    looker.query("q", link.far_index, "printer.local.", d.A)
    publisher.record("one", link.near_index, "printer.local.", d.A, v4(7))
    looker.wait("q")
    publisher.record("two", link.near_index, "printer.local.", d.A, v4(8))
    looker.wait("q", 2)
    publisher.remove("two")
    looker.wait("q", 3)
    publisher.remove("one")
    publisher.record("one again", link.near_index, "printer.local.", d.A, v4(7))
    settle(looker, "m1", link.far_index, publisher, link.near_index)
    assert answers(looker, "q") == [v4(7), v4(8), v4(7)]


def test_an_expired_address_is_silence_and_so_is_its_return(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.record("r", link.near_index, "printer.local.", d.A, v4(7))
    looker.query("q", link.far_index, "printer.local.", d.A)
    looker.wait("q")
    publisher.remove("r")
    stays_true(lambda: answers(looker, "q") == [v4(7)], 2, "that it is forgotten is not told")
    publisher.record("again", link.near_index, "printer.local.", d.A, v4(7))
    settle(looker, "m1", link.far_index, publisher, link.near_index)
    assert answers(looker, "q") == [v4(7)]


def test_an_unspecified_address_is_nobodys(link):
    looker, publisher = link.looker(), link.publisher()
    looker.query("q", link.far_index, "printer.local.", d.A)
    looker.query("q6", link.far_index, "printer.local.", d.AAAA)
    publisher.record("none", link.near_index, "printer.local.", d.A, bytes(4))
    publisher.record("none6", link.near_index, "printer.local.", d.AAAA, bytes(16))
    settle(looker, "m1", link.far_index, publisher, link.near_index)
    publisher.record("some", link.near_index, "printer.local.", d.A, v4(7))
    looker.wait("q")
    assert answers(looker, "q") == [v4(7)] and looker.of("q6") == []


def test_each_pointer_is_told_once_in_uncompressed_form(link):
    looker, publisher = link.looker(), link.publisher()
    name = "_universal._sub._ipp._tcp.local."
    first, second = (dns.encode_name(f"{one}._ipp._tcp.local") for one in ("One", "Two"))
    looker.query("q", link.far_index, name, d.PTR)
    publisher.record("one", link.near_index, name, d.PTR, first)
    looker.wait("q")
    publisher.record("two", link.near_index, name, d.PTR, second)
    looker.wait("q", 2)
    publisher.remove("one")
    stays_true(lambda: answers(looker, "q") == [first, second], 2, "that the first is forgotten is not told")
    publisher.record("one again", link.near_index, name, d.PTR, first)
    looker.wait("q", 3)  # it lives anew
    assert answers(looker, "q")[2] == first


def test_a_target_that_holds_a_zero_byte_is_none(link):
    air, looker = link.air(), link.publisher()
    instance = (b"Device", b"_ipp", b"_tcp", b"local")
    looker.resolve("rs", link.near_index, "Device", "_ipp._tcp")
    looker.query("q", link.near_index, "mark.local.", d.TXT)

    def say(target):
        air.say(dns.Record(instance, dns.SRV, (0, 0, 631, target), 120, True),
                dns.Record(instance, dns.TXT, b"\x01a", 4500, True))

    say((b"a\0b", b"local"))
    air.say(dns.Record(dns.labels("mark.local"), dns.TXT, b"\x01m", 4500, True))
    looker.wait("q")
    assert looker.of("rs") == []
    say((b"host", b"local"))
    assert d.text_of(looker.wait("rs")[0].fields[1]) == "host.local."


def test_an_srv_record_is_told_in_uncompressed_form(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer", host="printer.local", port=631)
    publisher.wait("reg")
    looker.query("q", link.far_index, "My\\032Printer._ipp._tcp.local.", d.SRV)
    looker.wait("q")
    assert answers(looker, "q") == [b"\0\0\0\0" + (631).to_bytes(2, "big") + dns.encode_name("printer.local")]
    assert d.text_of(looker.of("q")[0].fields[0]) == "My\\032Printer._ipp._tcp.local."


def test_a_host_with_an_escaped_dot_in_its_name_is_one_label(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.record("r", link.near_index, "my\\.host.local.", d.A, v4(7))
    looker.query("q", link.far_index, "my\\046host.local.", d.A)
    assert d.text_of(looker.wait("q")[0].fields[0]) == "my\\.host.local."


def test_a_resolve_inside_a_browse_reply_is_answered_from_the_announcement(link):
    looker, publisher = link.looker(), link.publisher()
    looker.when("br", "resolve", "rs", "c", d.SHARE, link.far_index, d.Driver.text("My Printer"),
                d.Driver.text("_ipp._tcp."), d.Driver.text("local."))
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    found, resolved = looker.wait("br")[0], looker.wait("rs")[0]
    assert resolved.time - found.time < 1
