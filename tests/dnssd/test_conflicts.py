# SPDX-License-Identifier: MIT
"""A stranger who has every name already: after fifteen conflicts within ten seconds each further try waits for five
(RFC 6762 section 8.1)."""

import threading

import driver as d
from pointer_place import SHORT_OF
from testbed import dns, wait_until

REGTYPE = dns.labels("_ipp._tcp.local")
CONFLICTS_MAX = 15
PAUSE = 5  # seconds


class Greedy:
    """Answers the first probe for each name that it is his."""

    def __init__(self, air):
        self.air, self.claims = air, []  # (name, when it was probed for first)
        self._stops = threading.Event()
        self._thread = threading.Thread(target=self._claim, daemon=True)

    def _claim(self):
        seen = 0
        while not self._stops.wait(0.005):
            packets = list(self.air.packets)
            for packet in packets[seen:]:
                self._look_at(packet)
            seen = len(packets)

    def _look_at(self, packet):
        message = packet.message
        if message is None or message.is_response or ":" in packet.source or not message.authorities:
            return
        for question in message.questions:
            known = [name for name, _ in self.claims]
            if question.kind == dns.ANY and question.name[1:] == REGTYPE and question.name not in known:
                self.claims.append((question.name, packet.time))
                self.air.say(dns.Record(question.name, dns.SRV, (0, 0, 99, dns.labels("stranger.local")), 120,
                                        flush=True), over="IPv4")

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._stops.set()
        self._thread.join()


def test_after_fifteen_conflicts_each_further_try_waits_for_five_seconds(link):
    air, publisher = link.air(), link.publisher()
    air.say_first(dns.Record(dns.labels("hello.local"), dns.TXT, b"\x01a"), over="IPv4")
    with Greedy(air) as greedy:
        publisher.register("reg", link.near_index, "My Printer")
        wait_until(lambda: len(greedy.claims) >= CONFLICTS_MAX + 2, 3 * PAUSE + 15, f"further tries\n{air.story()}")
    times = [time for _, time in greedy.claims]
    gaps = [after - before for before, after in zip(times, times[1:])]
    assert max(gaps[:CONFLICTS_MAX - 1]) < 2, "the first conflicts cost no pause"
    assert min(gaps[CONFLICTS_MAX - 1:]) >= PAUSE - SHORT_OF, gaps
    assert len({name for name, _ in greedy.claims}) == len(greedy.claims)
    # The stranger is gone: the next name is free.
    assert publisher.wait("reg", deadline=PAUSE + d.DEADLINE)[0].error == 0
