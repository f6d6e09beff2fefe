# SPDX-License-Identifier: MIT
"""A restart that nobody on link b notices, packet by packet.

    [ 500 devices ]---a [ mdnsproxy, and after it another ] b---[ ear, client with an open list ]
"""

import signal
import time

import pytest
from testbed import addresses_on, dns, rule, wait_until
from testbed.crowd import Crowd
from testbed.waiting import wait_for_silence

COUNT = 500
KIND = "_ipp._tcp"
HANDOVER = "/tmp/handover"
PATIENCE = 60  # seconds


class Town:
    """Everything is on link b and in the client's list, and the gateway has nothing more to say. Times are those of
    packets."""

    def __init__(self, scene):
        self.net = scene.network("a", "b")
        self.gateway = addresses_on(self.net.gateway, "b")
        self.ear = scene.ear(self.net["b"])
        self.devices = scene.keep(Crowd(self.net["a"]))
        self.daemon = scene.daemon(self.net.gateway, rule(KIND, "a", "b"),
                                   environment={"MDNSPROXY_HANDOVER": HANDOVER}).start_and_wait()
        self.devices.announce(0, COUNT, seconds=0.5)
        wait_until(lambda: len(self.instances(0.0)) == COUNT, PATIENCE, "all services on link b")
        wait_for_silence(self.last, 3, PATIENCE, "everything announced")
        self.list = scene.browser(self.net["b"])
        wait_until(lambda: len(self.list.names) == COUNT, PATIENCE,
                   lambda: f"all in the client's list, and not {len(self.list.names)}")
        wait_for_silence(self.last, 3, PATIENCE, "the client answered")

    def last(self):
        return max(packet.time for packet in self.ear.sent_by(*self.gateway))

    def records(self, since):
        return self.ear.records(self.gateway, since)

    def instances(self, since):
        return {dns.text(record.data) for _, record in self.ear.heard(f"{KIND}.local", dns.PTR, sources=self.gateway,
                                                                      since=since)
                if record.ttl}

    def gone(self, since):
        return {dns.text(record.name) for _, record in self.records(since) if record.ttl == 0
                and record.kind == dns.SRV}

    def probes(self, since):
        return [packet for packet in self.ear.sent_by(*self.gateway, since=since)
                if packet.message and not packet.message.is_response and packet.message.authorities]


@pytest.fixture(name="town")
def make_town(scene):
    return Town(scene)


def test_the_next_daemon_goes_on_with_what_the_former_one_has_published(town):
    town.daemon.box.write(f"{HANDOVER}.wanted", "")
    began = time.monotonic()
    assert town.daemon.stop() == 10
    town.devices.withdraw(0, 1)  # while nobody listens: only this one is not registered again
    town.daemon.start()
    wait_until(lambda: town.gone(began), PATIENCE, "what is gone on link a taken back")
    assert town.gone(began) == {f"Device 0.{KIND}.local"}
    assert not town.probes(began), town.probes(began)[0]
    said = [dns.text(record.name) for _, record in town.records(began) if record.ttl]
    assert not said, said[:10]
    assert {name for _, what, name in town.list.events if what == "removed"} <= {"Device 0"}
    town.daemon.send(signal.SIGTERM)
    wait_until(lambda: len(town.gone(began)) == COUNT, PATIENCE, "all of it taken back at an end as always")


def test_who_begins_to_look_meanwhile_is_answered_within_three_seconds(scene, town):
    town.daemon.box.write(f"{HANDOVER}.wanted", "")
    assert town.daemon.stop() == 10
    looks = time.monotonic()
    town.daemon.start()
    client = scene.browser(town.net["b"])
    wait_until(lambda: client.names, 3 - (time.monotonic() - looks), "an answer")
