# SPDX-License-Identifier: MIT
"""PTR records of a browsed type: which of them are believed, when they are gone, and what is reported."""

import time

import pytest

import driver as d
from pointer_place import SHORT_OF, Place, events, pointer
from testbed import dns, let_pass_until, wait_until


@pytest.fixture(name="place")
def make_place(link):
    return Place(link)


# --- What is believed

def test_a_goodbye_removes_and_a_rescue_keeps(place):
    place.browse("br")
    place.wait_asked(1, "_ipp._tcp")
    place.say(pointer("_ipp._tcp", "Leaving"), pointer("_ipp._tcp", "Staying"))
    place.near.wait("br", 2)
    said = time.monotonic()
    place.say(pointer("_ipp._tcp", "Leaving", 0), pointer("_ipp._tcp", "Staying", 0))
    let_pass_until(said + 0.3)
    place.say(pointer("_ipp._tcp", "Staying"))
    lost = place.wait_reply("br", "Leaving", False)
    assert lost.time - said >= 1 - SHORT_OF  # RFC 6762 section 10.1
    let_pass_until(said + 1.1)
    place.browse("later")
    place.wait_reply("later", "Staying")
    place.say(pointer("_ipp._tcp", "Marker"))
    place.wait_reply("later", "Marker")
    assert events(place.near, "br") == [(True, "Leaving"), (True, "Staying"), (False, "Leaving"), (True, "Marker")]
    assert events(place.near, "later") == [(True, "Staying"), (True, "Marker")]


def test_the_cache_flush_bit_ends_what_was_said_before_that_second(place):
    place.browse("br")
    place.wait_asked(1, "_ipp._tcp")
    said = time.monotonic()
    place.say(pointer("_ipp._tcp", "Old"))
    let_pass_until(said + 1.1)
    place.say(pointer("_ipp._tcp", "Recent"))
    place.near.wait("br", 2)
    flushed = time.monotonic()
    place.say(pointer("_ipp._tcp", "New", flush=True))
    lost = place.wait_reply("br", "Old", False)
    assert 1 - SHORT_OF <= lost.time - flushed < 3
    place.say(pointer("_ipp._tcp", "Marker"))
    place.wait_reply("br", "Marker")
    assert events(place.near, "br") == [(True, "Old"), (True, "Recent"), (True, "New"), (False, "Old"),
                                        (True, "Marker")]


def test_what_is_said_to_this_machine_alone_is_no_news(place):
    place.browse("br")
    place.wait_asked(1, "_ipp._tcp")
    place.air.tell(pointer("_ipp._tcp", "Whispered"))
    place.say(pointer("_ipp._tcp", "Printer"), pointer("_ipp._tcp", "Marker"))
    place.near.wait("br", 2)
    place.air.tell(pointer("_ipp._tcp", "Printer", 0))
    place.say(pointer("_ipp._tcp", "Marker", 0))
    place.wait_reply("br", "Marker", False)
    said = time.monotonic()
    let_pass_until(said + 0.5)  # a goodbye is reported sooner than the pointer itself ends
    place.say(pointer("_ipp._tcp", "Last"))
    place.wait_reply("br", "Last")
    assert events(place.near, "br") == [(True, "Printer"), (True, "Marker"), (False, "Marker"), (True, "Last")]


def test_a_name_that_is_no_text_is_not_reported(place):
    place.browse("br")
    place.wait_asked(1, "_ipp._tcp")
    place.say(pointer("_ipp._tcp", b"B\xfcro"), pointer("_ipp._tcp", b"cut \xe6\x97"), pointer("_ipp._tcp", "Büro"))
    place.say(pointer("_ipp._tcp", "Marker"))
    place.wait_reply("br", "Marker")
    assert events(place.near, "br") == [(True, "Büro"), (True, "Marker")]


# --- Links

def test_what_was_heard_over_a_protocol_goes_with_its_address_and_all_with_the_link(own_link):
    link = own_link()
    place = Place(link)
    place.browse("br")
    place.wait_asked(1, "_ipp._tcp")
    place.air.say_first(pointer("_ipp._tcp", "Four"), pointer("_ipp._tcp", "Both"), over="IPv4")
    place.air.say_first(pointer("_ipp._tcp", "Both"), pointer("_ipp._tcp", "Six"), over="IPv6")
    place.near.wait("br", 3)
    gone = time.monotonic()
    link.near.run("ip addr del 10.9.0.1/24 dev eth0")
    place.wait_reply("br", "Four", False)
    place.air.say(pointer("_ipp._tcp", "Marker"), over="IPv6")
    place.wait_reply("br", "Marker")
    assert [name for added, name in events(place.near, "br") if not added] == ["Four"]
    wait_until(lambda: len(place.times("_ipp._tcp", "IPv6", gone)) >= 3, d.DEADLINE, "questions that have become rare")
    link.near.run("ip link set eth0 down")
    place.near.wait("br", 8)
    assert sorted(name for added, name in events(place.near, "br") if not added) == ["Both", "Four", "Marker", "Six"]
    link.near.run("ip addr add 10.9.0.1/24 dev eth0")
    link.near.run("ip link set eth0 up")
    wait_until(lambda: place.times("_ipp._tcp", "IPv4", gone), d.DEADLINE, f"a question\n{place.air.story()}")
    # If nothing had happened, the next one would have followed four seconds after the third.
    assert place.times("_ipp._tcp", "IPv4", gone)[0] - place.times("_ipp._tcp", "IPv6", gone)[2] < 3.5
    place.air.say_first(pointer("_ipp._tcp", "Both"), over="IPv4")
    place.near.wait("br", 9)
    assert events(place.near, "br")[8:] == [(True, "Both")]


# --- Followers

def test_what_was_said_before_the_browse_began_is_news_when_it_is_said_again(place):
    place.browse("clocks", "_clock._tcp")  # so that the link is listened to
    place.wait_asked(1, "_clock._tcp")
    place.say(pointer("_ipp._tcp", "Printer"), pointer("_clock._tcp", "Marker"))
    place.wait_reply("clocks", "Marker")
    place.browse("br")
    place.say(pointer("_ipp._tcp", "Printer"))
    place.wait_reply("br", "Printer")


def test_whoever_stops_browsing_stops_asking_and_what_is_known_is_told_to_the_next(place):
    place.browse("br")
    place.wait_asked(1, "_ipp._tcp")
    place.say(pointer("_ipp._tcp", "Printer"))
    place.near.wait("br")
    place.near.release("br")
    released = time.monotonic()
    # began later: its second question comes when that of the other would have come
    place.browse("clock", "_clock._tcp")
    place.wait_asked(2, "_clock._tcp", since=released)
    assert not place.questions("_ipp._tcp", since=released + SHORT_OF)
    again = time.monotonic()
    place.browse("again")
    told = place.wait_reply("again", "Printer")
    assert not place.air.heard("_ipp._tcp.local", dns.PTR, since=again)
    place.wait_asked(1, "_ipp._tcp", since=again)
    assert told.time < place.questions("_ipp._tcp", since=again)[0].time + SHORT_OF


def test_a_query_for_pointers_tells_the_same(place):
    place.browse("br")
    place.near.query("q", place.link.near_index, "_ipp._tcp.local.", d.PTR)
    place.wait_asked(1, "_ipp._tcp")
    place.air.say(pointer("_ipp._tcp", "One"), pointer("_ipp._tcp", "Other"))
    replies = place.near.wait("q", 2)
    place.near.wait("br", 2)
    assert sorted(bytes.fromhex(reply.fields[3]) for reply in replies) == [
        dns.encode_name("One._ipp._tcp.local"), dns.encode_name("Other._ipp._tcp.local")]
    place.near.query("late", place.link.near_index, "_IPP._tcp.local.", d.PTR)
    assert len(place.near.wait("late", 2)) == 2
    place.say(pointer("_ipp._tcp", "Marker"))
    place.near.wait("late", 3)
    place.near.wait("q", 3)
    # each once, though it was said over two protocols
    assert len(place.near.of("q")) == 3 and len(place.near.of("late")) == 3


def test_beside_something_registered_all_is_the_same(place):
    place.browse("br")
    place.wait_asked(1, "_ipp._tcp")
    place.say(pointer("_ipp._tcp", "Before"))
    place.near.wait("br")
    place.near.register("reg", place.link.near_index, "Mine")
    place.wait_reply("br", "Mine")
    place.say(pointer("_ipp._tcp", "After"))
    place.wait_reply("br", "After")
    asked = time.monotonic()
    place.browse("second")
    assert sorted(d.text_of(reply.fields[0]) for reply in place.near.wait("second", 3)) == ["After", "Before", "Mine"]
    mine = dns.labels(("Mine", "_ipp", "_tcp", "local"))
    place.wait_asked(2, "_ipp._tcp", since=asked)
    wait_until(lambda: len(place.air.said("_ipp._tcp.local", dns.PTR, data=mine)) >= 2, d.DEADLINE,
               "both announcements")
    said = place.air.said("_ipp._tcp.local", dns.PTR, data=mine)[-1][0].time
    let_pass_until(said + 1)  # within which nothing is said once more (RFC 6762 section 6)
    since = time.monotonic()
    place.say(pointer("_ipp._tcp", "After", 0), pointer("_ipp._tcp", "Mine", 0))
    # Ours by mistake, which is put right (RFC 6762 section 6.6), not only in answer to the next question.
    right = wait_until(lambda: place.air.said("_ipp._tcp.local", dns.PTR, since, data=mine), d.DEADLINE,
                       "Mine said again")[0][0]
    assert not [at for at in place.times("_ipp._tcp", "IPv4", since) if at < right.time]
    place.wait_reply("br", "After", False)
    place.say(pointer("_ipp._tcp", "Before", 0))
    place.wait_reply("br", "Before", False)
    place.near.release("reg")
    gone = place.wait_reply("br", "Mine", False)
    assert events(place.near, "br") == [(True, "Before"), (True, "Mine"), (True, "After"), (False, "After"),
                                        (False, "Before"), (False, "Mine")]
    assert gone.time > since + 1


def test_what_was_registered_before_is_found_by_a_browse_that_begins_later(place):
    place.near.register("reg", place.link.near_index, "Mine")
    mine = dns.labels(("Mine", "_ipp", "_tcp", "local"))
    wait_until(lambda: len(place.air.said("_ipp._tcp.local", dns.PTR, data=mine)) >= 2, d.DEADLINE,
               "both announcements")
    place.browse("br")
    place.wait_reply("br", "Mine")
    place.near.release("reg")
    place.wait_reply("br", "Mine", False)
    assert events(place.near, "br") == [(True, "Mine"), (False, "Mine")]
