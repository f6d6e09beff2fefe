# SPDX-License-Identifier: MIT
"""A client on a link: asks by multicast, and takes what the gateway answers."""

import time

from . import dns
from .network import addresses_on
from .voice import Voice
from .waiting import wait_until


class Client:
    """`ear`: the ear on the client's link; `gateway`: the namespace of the gateway, whose interface is named as the
    link."""

    def __init__(self, link, ear, gateway):
        self.link = link
        self.ear = ear
        self.gateway = addresses_on(gateway, link.name)
        self._held = {}  # (name, kind) -> data of every record
        # (name, kind, data) of what other hosts have announced: theirs as much as the gateway's
        self._vouched_for = set()
        self._taken_in = 0
        self._voice = Voice(link)

    def finds(self, name, kind=dns.SRV, within=5):
        """The data of the gateway's answer. Asks again every second, since a responder need not repeat what it has just
        said."""
        started = again = time.monotonic()

        def answers():
            nonlocal again
            if time.monotonic() >= again:
                self._voice.ask(name, kind)
                again = time.monotonic() + 1
            return [record for _, record in self.ear.heard(name, kind, sources=self.gateway, since=started)
                    if record.ttl]

        return wait_until(answers, within, f"{dns.text(dns.labels(name))} found on link {self.link.name}")[-1].data

    def heard_packets(self, since=0.0):
        """What the gateway has put on the link."""
        return self.ear.sent_by(*self.gateway, since=since)

    def held(self):
        """What a client that hears everything holds from the gateway: (name, kind, data) of every record that was
        announced and neither withdrawn nor flushed, by whomever, and is no other host's as well."""
        self._listen()
        return {(*key, data) for key, all_data in self._held.items() for data in all_data} - self._vouched_for

    def _listen(self):
        """Takes in what has been heard since the last time."""
        packets = self.ear.packets[self._taken_in:]
        self._taken_in += len(packets)
        for packet in packets:
            if packet.message and packet.message.is_response:
                for record in packet.message.records:
                    self._take_in(record, packet.source in self.gateway)

    def _take_in(self, record, is_gateways):
        key = (dns.text(record.name).lower(), record.kind)
        if record.kind == dns.NSEC:
            return
        if not is_gateways:
            if record.flush:
                self._held.pop(key, None)
            if record.ttl:
                self._vouched_for.add((*key, record.data))
            else:
                self._vouched_for.discard((*key, record.data))
            return
        held = self._held.setdefault(key, set())
        if not record.ttl:
            held.discard(record.data)
        elif record.flush:
            self._held[key] = {record.data}
        else:
            held.add(record.data)

    def instances(self, kind="_ipp._tcp.local"):
        """The instances that the gateway has announced and not withdrawn."""
        self._listen()
        return set(self._held.get((kind, dns.PTR), ()))

    def close(self):
        self._voice.close()
