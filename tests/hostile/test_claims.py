# SPDX-License-Identifier: MIT
"""Somebody on link B who has every name already, whichever the gateway probes for or announces.

    link A                 gateway            link B
    [ printer ]-----------[ mdnsproxy ]---+---[ client, counting packets ]
                                          +---[ adversary ]
"""

from testbed import Client, dns, let_pass, rule, wait_until
from testbed.adversary import Adversary, addresses_of
from testbed.waiting import Meanwhile


class Claimant:
    """Answers every name that the gateway says with data of its own, until it is told to stop."""

    def __init__(self, scene, client):
        self.adversary = scene.keep(Adversary(client.link))
        self.client = client
        self._answered = 0
        self._claims = Meanwhile(self._claim)

    def _claim(self):
        packets = self.client.heard_packets()
        for packet in packets[self._answered:]:
            for answer in self._answers(packet.message):
                self.adversary.say(dns.response(*answer))
        self._answered = len(packets)

    @staticmethod
    def _answers(message):
        records = message.authorities + message.answers
        for name in {record.name for record in records if record.kind == dns.SRV}:
            yield [dns.Record(name, dns.SRV, (0, 0, 9, dns.labels("mine.local")), dns.HOST_TTL, True)]
        for name in {record.name for record in records if record.kind in (dns.A, dns.AAAA)}:
            yield addresses_of(name, "10.2.0.66", "fd00:2::66")

    def stop(self):
        self._claims.close()


def test_whoever_claims_every_name_costs_few_packets_and_ends_nothing(scene):
    network = scene.network("a", "b")
    daemon = scene.daemon(network.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
    client = scene.keep(Client(network["b"], scene.ear(network["b"]), network.gateway))
    claimant = Claimant(scene, client)
    scene.device(network["a"]).publish("Genuine")
    wait_until(lambda: client.heard_packets(), 5, "a probe")
    let_pass(8)
    claimed = len(client.heard_packets())
    claimant.stop()
    # RFC 6762, section 8.1: fifteen tries, then one in five seconds. A try is a probe or two, over two protocols.
    assert claimed <= 90, f"{claimed} packets in eight seconds"
    assert daemon.daemon_status is None and daemon.status_code == 0, daemon.status_file
    wait_until(client.instances, 15, "the service under a name that nobody claims")
    assert daemon.stop() == 10
    wait_until(lambda: not client.held(), 5, lambda: f"goodbyes; link B still holds {client.held()}")
