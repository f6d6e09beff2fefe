# SPDX-License-Identifier: MIT
"""Single records: shared or unique, their lifetimes, holders, and changes."""

import time

import pytest

import driver as d
from testbed import dns, stays_true


def v4(last):
    return bytes([10, 9, 0, last])


def told(looker, name):
    return [reply.fields[3] for reply in looker.of(name)]


def stays_told(looker, count, seconds=2):
    """Nothing more is told, while a goodbye has its effect."""
    stays_true(lambda: len(looker.of("q")) == count, seconds, lambda: told(looker, "q"))


def test_a_shared_record_is_established_at_once(link):
    looker, publisher = link.looker(), link.publisher()
    looker.query("q", link.far_index, "printer.local.", d.A)
    before = time.monotonic()
    assert publisher.record("r", link.near_index, "printer.local.", d.A, v4(7), flags=d.SHARED) == 0
    reply = publisher.wait("r")[0]
    assert reply.error == 0 and reply.time - before < 0.5
    looker.wait("q")


@pytest.mark.parametrize("flags", [0x08000010, 0x80000010])
def test_private_flag_bits_change_nothing(link, flags):
    publisher = link.publisher()
    assert publisher.record("r", link.near_index, "printer.local.", d.A, v4(7), flags=flags) == 0
    assert publisher.wait("r")[0].error == 0


def test_a_unique_record_is_probed_for(link):
    publisher = link.publisher()
    before = time.monotonic()
    publisher.record("r", link.near_index, "printer.local.", d.A, v4(7), flags=d.UNIQUE)
    reply = publisher.wait("r")[0]
    assert reply.error == 0 and reply.time - before > 0.6


def test_a_unique_record_that_somebody_else_has_is_a_conflict(link):
    first, second = link.looker(), link.publisher()
    first.record("r", link.far_index, "printer.local.", d.A, v4(7), flags=d.UNIQUE)
    first.wait("r")
    second.record("r", link.near_index, "printer.local.", d.A, v4(8), flags=d.UNIQUE)
    assert second.wait("r")[0].error == d.NAME_CONFLICT
    assert second.update("r", v4(9)) == d.BAD_STATE
    assert second.remove("r") == 0


def test_two_shared_records_of_one_name_stand_side_by_side(link):
    looker, first, second = link.looker(), link.looker(), link.publisher()
    looker.query("q", link.far_index, "shared.local.", d.TXT)
    first.record("r", link.far_index, "shared.local.", d.TXT, b"\x01a")
    second.record("r", link.near_index, "shared.local.", d.TXT, b"\x01b")
    looker.wait("q", 2)
    assert set(told(looker, "q")) == {"0161", "0162"}


@pytest.mark.parametrize("rrtype, rdata, ttl, expected", [
    (d.A, v4(7), 0, 120), (d.AAAA, bytes([0xFD, 9] + [0] * 13 + [7]), 0, 120), (d.TXT, b"\x01a", 0, 4500),
    (d.PTR, dns.encode_name("x.local"), 0, 4500), (d.SRV, b"\0\0\0\0\0\x01" + dns.encode_name("x.local"), 0, 120),
    (d.A, v4(7), 77, 77)])
def test_a_lifetime_of_zero_means_the_usual_one(link, rrtype, rdata, ttl, expected):
    looker, publisher = link.looker(), link.publisher()
    looker.query("q", link.far_index, "name.local.", rrtype)
    publisher.record("r", link.near_index, "name.local.", rrtype, rdata, ttl)
    reply = looker.wait("q")[0]
    assert int(reply.fields[4]) == expected and bytes.fromhex(reply.fields[3]) == rdata


def test_the_same_record_twice_is_one_with_two_holders(link):
    looker, publisher = link.looker(), link.publisher()
    looker.query("q", link.far_index, "printer.local.", d.PTR)
    rdata = dns.encode_name("x.local")
    publisher.record("one", link.near_index, "printer.local.", d.PTR, rdata)
    publisher.record("two", link.near_index, "PRINTER.local.", d.PTR, rdata)
    assert publisher.wait("one")[0].error == publisher.wait("two")[0].error == 0
    publisher.record("three", link.near_index, "printer.local.", d.PTR, rdata)
    assert publisher.wait("three")[0].error == 0
    looker.wait("q")
    publisher.remove("one")
    publisher.remove("three")
    stays_told(looker, 1)
    fresh = link.looker()
    fresh.query("q", link.far_index, "printer.local.", d.PTR)
    fresh.wait("q")  # still held by the second
    publisher.remove("two")
    stays_told(looker, 1)
    publisher.record("again", link.near_index, "printer.local.", d.PTR, rdata)
    looker.wait("q", 2)  # so it was gone in between
    assert len(looker.of("q")) == 2


def test_an_update_leaves_the_other_holder_its_record(link):
    looker, publisher = link.looker(), link.publisher()
    looker.query("q", link.far_index, "host.local.", d.TXT)
    publisher.record("one", link.near_index, "host.local.", d.TXT, b"\x01a")
    publisher.record("two", link.near_index, "host.local.", d.TXT, b"\x01a")
    looker.wait("q")
    assert publisher.update("one", b"\x01b") == 0
    looker.wait("q", 2)
    stays_told(looker, 2)
    fresh = link.looker()
    fresh.query("q", link.far_index, "host.local.", d.TXT)
    fresh.wait("q", 2)
    assert set(told(fresh, "q")) == {"0161", "0162"}
    assert len(publisher.of("one")) == len(publisher.of("two")) == 1


@pytest.mark.parametrize("flags", [d.SHARED, d.UNIQUE])
def test_an_update_announces_the_new_and_withdraws_the_old(link, flags):
    looker, publisher = link.looker(), link.publisher()
    looker.query("q", link.far_index, "printer.local.", d.A)
    publisher.record("r", link.near_index, "printer.local.", d.A, v4(7), flags=flags)
    looker.wait("q")
    publisher.wait("r")
    assert publisher.update("r", v4(8)) == 0
    looker.wait("q", 2)
    stays_told(looker, 2)
    fresh = link.looker()
    fresh.query("q", link.far_index, "printer.local.", d.A)
    fresh.wait("q")
    stays_true(lambda: told(fresh, "q") == [v4(8).hex()], 0.5, "the new data alone")


def test_an_update_back_to_the_former_data_sticks(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.record("r", link.near_index, "printer.local.", d.A, v4(7))
    publisher.wait("r")
    for last in (8, 7, 9, 7, 8, 7):
        assert publisher.update("r", v4(last)) == 0
    stays_true(lambda: len(publisher.of("r")) == 1, 2.5, "it stays established")
    looker.query("q", link.far_index, "printer.local.", d.A)
    looker.wait("q")
    stays_true(lambda: told(looker, "q") == [v4(7).hex()], 0.5, "the last data alone")


def test_an_update_of_a_record_that_is_not_yet_established_counts(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.record("r", link.near_index, "printer.local.", d.A, v4(7), flags=d.UNIQUE)
    assert publisher.update("r", v4(8)) == 0
    assert publisher.wait("r")[0].error == 0
    stays_true(lambda: len(publisher.of("r")) == 1, 2, "it stays established")
    looker.query("q", link.far_index, "printer.local.", d.A)
    looker.wait("q")
    assert told(looker, "q") == [v4(8).hex()]


def test_a_removed_record_is_gone_within_two_seconds(link):
    looker, publisher = link.looker(), link.publisher()
    rdata = dns.encode_name("My Printer._ipp._tcp.local")
    looker.browse("br", link.far_index, "_universal._ipp._tcp")
    publisher.record("r", link.near_index, "_universal._sub._ipp._tcp.local.", d.PTR, rdata)
    looker.wait("br")
    before = time.monotonic()
    assert publisher.remove("r") == 0
    assert looker.wait("br", 2)[1].time - before < 2
    assert publisher.remove("r") == d.BAD_REFERENCE


LABEL = "x" * 63
ANY_BYTES = "".join(f"\\{byte:03}" for byte in range(1, 64))


@pytest.mark.parametrize("name", [
    f"{LABEL}.{LABEL}.{LABEL}.{'y' * 61}", f"{ANY_BYTES}.{ANY_BYTES}.{ANY_BYTES}.{ANY_BYTES[:61 * 4]}", "local", "\\.",
    "\\..\\.", "\\\\.local", "_sub", "Büro im 2\\. Stock.local.", "1.0.9.10.in-addr.arpa.", "-.example.com"],
    ids=range(10))
def test_whatever_can_be_asked_for_can_be_registered(link, name):
    looker, publisher = link.looker(), link.publisher()
    assert looker.query("q", link.far_index, name, d.TXT) == 0
    for flags in (d.SHARED, d.UNIQUE):
        assert publisher.record(f"r{flags}", link.near_index, name, d.TXT, b"\x01a", flags=flags) == 0
        assert publisher.wait(f"r{flags}")[0].error == 0
    assert looker.wait("q")[0].fields[3] == b"\x01a".hex()


def test_a_name_that_is_not_utf8_is_a_bad_parameter_of_either(link):
    driver = link.publisher()
    for name in ("\\255\\254.local", "host.\\195"):
        assert driver.query("q", link.near_index, name, d.TXT) == d.BAD_PARAM
        assert driver.record("r", link.near_index, name, d.TXT, b"\x01a") == d.BAD_PARAM
    assert driver.register("reg", link.near_index, b"\xff\xfe") == d.BAD_PARAM
    assert driver.register("reg", link.near_index, b"\x80" * 70) == d.BAD_PARAM
    assert driver.register("reg", link.near_index, "My Printer", host="\\255.local") == d.BAD_PARAM
    assert driver.resolve("rs", link.near_index, b"\xff\xfe", "_ipp._tcp") == d.BAD_PARAM


@pytest.mark.parametrize("size", [8192, 8193, 65535])
def test_data_that_no_message_can_carry_is_refused(link, size):
    publisher = link.publisher()
    rdata = (b"\x7f" + b"x" * 127) * (size // 128)
    rdata += bytes([size % 128 - 1]) + b"x" * (size % 128 - 1) if size % 128 else b""
    expected = 0 if size <= 8192 else d.BAD_PARAM
    assert publisher.record("r", link.near_index, "big.local.", d.TXT, rdata) == expected
    assert publisher.register("reg", link.near_index, "Big", txt=rdata) == expected
    publisher.record("small", link.near_index, "small.local.", d.TXT, b"\x01a")
    assert publisher.wait("small")[0].error == 0
    assert publisher.update("small", rdata) == expected
    if expected == 0:
        assert publisher.wait("reg")[0].error == publisher.wait("r")[0].error == 0


def test_bad_rdata_is_a_bad_parameter(link):
    publisher = link.publisher()
    for rrtype, rdata in ((d.A, b"abc"), (d.AAAA, v4(1)), (d.PTR, b"\xc0\x0c"), (d.TXT, b"\x09a"),
                          (d.SRV, b"\0\0\0\0\0\x01")):
        assert publisher.record("bad", link.near_index, "h.local.", rrtype, rdata) == d.BAD_PARAM
    publisher.record("r", link.near_index, "h.local.", d.A, v4(1))
    assert publisher.update("r", b"abc") == d.BAD_PARAM


def test_records_belong_to_the_connection_that_made_them(link):
    publisher = link.publisher()
    publisher.connect("other")
    publisher.record("r", link.near_index, "h.local.", d.A, v4(1))
    assert publisher.do("removefrom", "other", "r") == d.BAD_REFERENCE
    publisher.browse("br", link.near_index, "_ipp._tcp")
    assert publisher.record("bad", link.near_index, "h.local.", d.A, v4(1), connection="br") == d.BAD_REFERENCE
    publisher.release("c")
    assert publisher.remove("r") == d.BAD_REFERENCE
