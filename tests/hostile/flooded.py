# SPDX-License-Identifier: MIT
"""A gateway that is flooded, and what has to hold meanwhile."""

import time

from testbed import Client, dns, rule, wait_until
from testbed.adversary import Adversary
from testbed.waiting import wait_for_silence

GENUINE = "Genuine._ipp._tcp.local"


class Flooded:
    """A gateway with a genuine service on link A, a client on B that has found it, and an adversary."""

    def __init__(self, scene, *types):
        network = scene.network("a", "b")
        rules = [rule(each, "a", "b") for each in types or ("_ipp._tcp", "_universal._ipp._tcp")]
        self.daemon = scene.daemon(network.gateway, *rules).start_and_wait()
        self.device = scene.device(network["a"], host="genuine-host")
        self.device.publish("Genuine", port=6310, subtypes=("_universal",))
        self.client = scene.keep(Client(network["b"], scene.ear(network["b"]), network.gateway))
        self.finds_genuine()
        self.adversary = scene.keep(Adversary(network["a"]))

    def finds_genuine(self):
        assert self.client.finds(GENUINE, within=8) == (0, 0, 6310, dns.labels("genuine-host.local"))

    def stands(self, packets, per_second, at_most, within=10):
        """Floods; the genuine service has to be found meanwhile and afterwards, and no more than `at_most` packets may
        be on link B."""
        since = time.monotonic()
        self.adversary.start_flood(packets, per_second)
        while self.adversary.is_flooding:
            self.finds_genuine()
            self.is_up()
        self.falls_silent(within)
        count = len(self.client.heard_packets(since))
        print(f"{self.adversary.sent} packets on link A, {count} on link B")
        self.is_up()
        self.finds_genuine()
        assert count <= at_most, f"{count} packets on link B"

    def holds_of(self, word):
        """What link B holds from the gateway with this word in its name or its data."""
        return {record for record in self.client.held() if word in str(record)}

    def is_up(self):
        assert self.daemon.daemon_status is None and self.daemon.status_code == 0, self.daemon.status_file

    def falls_silent(self, within, quiet=1.2):
        """A responder that has something left to announce does so within a second."""
        wait_for_silence(lambda: self.client.heard_packets()[-1].time, quiet, within, "silence on link B")

    def ends_clean(self):
        assert self.daemon.stop(within=10) == 10
        wait_until(lambda: not self.client.held(), 5, lambda: f"goodbyes; link B still holds {self.client.held()}")
