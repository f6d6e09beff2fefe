# SPDX-License-Identifier: MIT
"""What a service says of itself is followed after its resolve: data that changes, and a host that has fallen silent."""

import time

import pytest

import driver as d
from pointer_place import events
from testbed import dns, stays_true, wait_until

KIND = dns.labels("_ipp._tcp.local")
INSTANCE = (b"Device", *KIND)
HOST = dns.labels("host.local")


def pointer(ttl=4500):
    return dns.Record(KIND, dns.PTR, INSTANCE, ttl)


def server(port=631):
    return dns.Record(INSTANCE, dns.SRV, (0, 0, port, HOST), 120, True)


def text(data):
    return dns.Record(INSTANCE, dns.TXT, data, 4500, True)


def address(last, ttl=120):
    return dns.Record(HOST, dns.A, f"10.9.0.{last}", ttl, True)


@pytest.fixture(name="place")
def make_place(link):
    class Place:
        air, near = link.air(), link.publisher()
        index = link.near_index

        def find(self):
            """Browses, resolves once, and releases the resolve, as the daemon does."""
            self.near.browse("br", self.index, "_ipp._tcp")
            wait_until(lambda: self.air.heard(KIND, dns.PTR) or self.asked(KIND), d.DEADLINE, "a question")
            self.air.say_first(pointer(), server(), text(b"\x03a=1"), address(7, self.address_ttl), over=self.over)
            self.near.wait("br")
            self.near.resolve("rs", self.index, "Device", "_ipp._tcp")
            self.near.wait("rs")
            self.near.release("rs")

        def asked(self, name, since=0.0):
            return [packet for packet in self.air.sent_by(*self.air.near, since=since) if packet.message
                    and not packet.message.is_response
                    and any(dns.same_name(q.name, name) for q in packet.message.questions)]

        address_ttl, over = 120, None

    return Place()


@pytest.mark.parametrize("change", [lambda: text(b"\x03a=2"), lambda: server(632)], ids=["TXT", "port"])
def test_changed_data_is_the_instance_gone_and_found_again(place, change):
    place.find()
    changed = time.monotonic()
    place.air.say(change())
    replies = place.near.wait("br", 3)
    assert [d.add_flag(reply) for reply in replies] == [True, False, True]
    assert replies[2].time - changed < 0.3
    place.near.resolve("rs", place.index, "Device", "_ipp._tcp")
    reply = place.near.wait("rs", 2)[1]
    assert (int(reply.fields[2]), bytes.fromhex(reply.fields[3])) in ((631, b"\x03a=2"), (632, b"\x03a=1"))
    assert len(place.near.of("rs")) == 2, "the old data is not reported first"


def test_data_that_is_said_again_is_no_change(place):
    place.find()
    place.air.say(server(), text(b"\x03a=1"))
    place.air.say(dns.Record(KIND, dns.PTR, (b"Marker", *KIND), 4500))
    place.near.wait("br", 2)
    assert events(place.near, "br") == [(True, "Device"), (True, "Marker")]


def test_other_data_of_another_host_is_no_change(place):
    place.over = "IPv4"  # so whoever sends over IPv6 is not known to be the same host
    place.find()
    place.air.say(text(b"\x03a=2"), over="IPv6")
    place.air.say(dns.Record(KIND, dns.PTR, (b"Marker", *KIND), 4500))
    place.near.wait("br", 2)
    assert events(place.near, "br") == [(True, "Device"), (True, "Marker")]


def test_each_change_is_followed(place):
    place.find()
    for count in range(2, 6):
        place.air.say(text(b"\x03a=%d" % count))
        place.near.wait("br", 2 * count - 1)
        place.near.resolve(f"rs{count}", place.index, "Device", "_ipp._tcp")
        assert bytes.fromhex(place.near.wait(f"rs{count}")[0].fields[3]) == b"\x03a=%d" % count
        place.near.release(f"rs{count}")


def test_what_is_withdrawn_and_registered_again_with_other_data_is_an_update(place, link):
    """The caller's part of a change, on the wire: no goodbye, no probe, one announcement of what is different, said
    twice."""
    place.find()
    publisher, name = place.near, ("Device", "_http", "_tcp", "local")
    publisher.register("reg", link.near_index, "Device", regtype="_http._tcp", txt=b"\x03a=1")
    publisher.record("r", link.near_index, "printer.local.", d.A, bytes([10, 9, 0, 7]))
    wait_until(lambda: len(place.air.said(name, dns.SRV)) >= 2 and len(place.air.said("printer.local", dns.A)) >= 2,
               d.DEADLINE, "announcements")
    since = time.monotonic()
    publisher.when("br", "release", "reg")
    place.air.say(text(b"\x03a=2"))
    publisher.wait("br", 3)
    publisher.remove("r")
    publisher.register("reg", link.near_index, "Device", regtype="_http._tcp", txt=b"\x03a=2")
    publisher.record("r", link.near_index, "printer.local.", d.A, bytes([10, 9, 0, 7]))
    wait_until(lambda: len(place.air.said(name, dns.TXT, since, data=b"\x03a=2")) >= 2, d.DEADLINE,
               "both announcements of the new data")
    assert place.air.said(name, dns.TXT, since, data=b"\x03a=2")[0][0].time - since < 0.3
    assert not place.air.probes(name, since)
    assert not [record for packet, record in place.air.said(name, dns.TXT, since) + place.air.said(name, dns.SRV, since)
                + place.air.said("printer.local", dns.A, since) if record.ttl == 0]


def found_for_the_last_time(place, address_ttl):
    """The service and an address of its host are known, and nothing is said any more since the moment that is
    returned."""
    place.address_ttl = address_ttl
    place.find()
    place.near.query("q", place.index, "host.local.", d.A)
    place.near.wait("q")
    return time.monotonic()


def test_a_host_that_falls_silent_takes_its_services_with_it(place):
    silent = found_for_the_last_time(place, 4)
    replies = place.near.wait("br", 2, deadline=25)
    assert not d.add_flag(replies[1])
    assert 3 < replies[1].time - silent < 4 + 10 + 2
    assert len(place.asked(KIND, silent + 3)) >= 2


def test_a_service_that_is_confirmed_stays(place):
    silent = found_for_the_last_time(place, 3)
    wait_until(lambda: place.asked(KIND, silent + 2.9), d.DEADLINE, "a question for the service")
    place.air.say(pointer())
    stays_true(lambda: events(place.near, "br") == [(True, "Device")], silent + 15 - time.monotonic(), "it is there")


def test_data_that_comes_back_within_a_second_is_a_change_too(place):
    place.find()
    for count, data in enumerate((b"\x03a=2", b"\x03a=1", b"\x03a=2"), 1):
        place.air.say(text(data))
        changed = time.monotonic()
        assert place.near.wait("br", 1 + 2 * count)[-1].time - changed < 0.3
        place.near.resolve(f"rs{count}", place.index, "Device", "_ipp._tcp")
        assert bytes.fromhex(place.near.wait(f"rs{count}")[0].fields[3]) == data
        place.near.release(f"rs{count}")
