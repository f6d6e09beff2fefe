# SPDX-License-Identifier: MIT
"""Pointers on a link: the near host looks for them, and a stranger on the far one says what there is and asks."""


import driver as d
from testbed import dns, wait_until

SHORT_OF = 0.02  # seconds by which two packets may seem nearer than they were sent


def type_name(regtype):
    return dns.labels(regtype + ".local")


def pointer(regtype, instance, ttl=4500, flush=False):
    kind = type_name(regtype)
    return dns.Record(kind, dns.PTR, (instance.encode() if isinstance(instance, str) else instance, *kind), ttl, flush)


def events(driver, name):
    return [(d.add_flag(reply), d.text_of(reply.fields[0])) for reply in driver.of(name)]


def is_over(packet, protocol):
    return (":" in packet.source) == (protocol == "IPv6")


class Place:
    """The near host, that looks for pointers, and the stranger beside it."""

    def __init__(self, link):
        for host in (link.near, link.far):
            wait_until(lambda h=host: "fe80:" in h.run("ip addr show dev eth0"), d.DEADLINE,
                       "the link's own addresses")
        self.link, self.air, self.near = link, link.air(), link.publisher()

    def browse(self, name, regtype="_ipp._tcp"):
        assert self.near.browse(name, self.link.near_index, regtype) == 0

    def questions(self, regtype, protocol=None, since=0.0):
        """The near host's packets that ask for the type's pointers."""
        return [packet for packet in self.air.sent_by(*self.air.near, since=since)
                if packet.message and not packet.message.is_response and (protocol is None or is_over(packet, protocol))
                and any(dns.same_name(question.name, type_name(regtype)) for question in packet.message.questions)]

    def times(self, regtype, protocol, since=0.0):
        return [packet.time for packet in self.questions(regtype, protocol, since)]

    def wait_asked(self, count, *regtypes, since=0.0, deadline=d.DEADLINE):
        """Until each of the types has been asked for so many times, over both protocols."""
        for regtype in regtypes:
            for protocol in ("IPv4", "IPv6"):
                wait_until(lambda r=regtype, p=protocol: len(self.times(r, p, since)) >= count, deadline,
                           f"{count} questions for {regtype} over {protocol}\n{self.air.story()}")

    def say(self, *records):
        self.air.say(*records, over="IPv4")

    def ask(self, *regtypes, known=(), unicast=False):
        """The stranger's question, over IPv4."""
        questions = [dns.Question(type_name(regtype), dns.PTR, unicast) for regtype in regtypes]
        self.air.send(dns.query(*questions, known=known), "IPv4")

    def replies(self, name, instance, is_added):
        return [reply for reply in self.near.of(name) if d.text_of(reply.fields[0]) == instance
                and d.add_flag(reply) == is_added]

    def wait_reply(self, name, instance, is_added=True):
        return wait_until(lambda: self.replies(name, instance, is_added), d.DEADLINE,
                          f"{instance} {'found' if is_added else 'lost'} by {name}\n{self.near.dump()}")[0]
