# SPDX-License-Identifier: MIT
"""The air between the two hosts: every packet on it, and a stranger on the far host who says what he likes."""

import contextlib

from testbed import Ear, Voice, addresses_on, dns, wait_until
from testbed.network import End


class Air(Ear, Voice):
    """Hears everything from its making on. `near`: the addresses that the near host sends from."""

    def __init__(self, link):
        far = End(link.far, "eth0")
        Ear.__init__(self, far)
        Voice.__init__(self, far)
        self.near = addresses_on(link.near, "eth0")

    def say(self, *answers, over=None):
        """A response with these records, over both protocols or one of "IPv4" and "IPv6"."""
        self.respond(answers, over)

    def tell(self, *answers):
        """The same to the near host alone, over IPv4."""
        opened, group = self.sockets[0]
        opened.sendto(dns.response(*answers), (next(address for address in self.near if ":" not in address), group[1]))

    def say_first(self, *answers, over=None):
        """The same, as soon as the far host's addresses can be used."""
        def is_said():
            with contextlib.suppress(OSError):
                self.say(*answers, over=over)
                return True
            return False
        wait_until(is_said, 15, "the link")

    def probes(self, name, since=0.0):
        """The near host's probes for a name, each once however many protocols there are: those over IPv4."""
        return [packet for packet in self.sent_by(*self.near, since=since)
                if packet.message and not packet.message.is_response and packet.message.authorities
                and ":" not in packet.source
                and any(question.kind == dns.ANY and dns.same_name(question.name, name)
                        for question in packet.message.questions)]

    def said(self, name, kind, since=0.0, **narrow):
        """The near host's answers of that name and type, those over IPv4."""
        return [(packet, record) for packet, record in self.heard(name, kind, sources=self.near, since=since, **narrow)
                if ":" not in packet.source]

    def close(self):
        Ear.close(self)
        Voice.close(self)
