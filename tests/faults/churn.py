# SPDX-License-Identifier: MIT
"""Services that come, change and go at random."""

import random
import time

from testbed import Client, chosen_seed, let_pass, mdnsproxy_path, rule, wait_until
from testbed.figures import DaemonFigures

HOSTS = 4
# Memory that the C library keeps in pieces although nothing is in them, and tables that grow but do not shrink.
RESIDENT_SLACK = 4 << 20  # bytes
# An idle Avahi cache still holds what was said goodbye to for a second; addresses live two minutes without their host.
SETTLES_WITHIN = 10
# So that a failure shows whether memory grew all the while or rose to what the busiest moment took.
SECONDS_PER_FIGURE = 60


class Churn:
    def __init__(self, scene, seed):
        self.dice = random.Random(seed)
        network = scene.network("a", "b")
        self.daemon = scene.daemon(network.gateway, rule("_ipp._tcp", "a", "b"), rule("_universal._ipp._tcp", "a", "b"))
        self.daemon.start_and_wait()
        self.client = scene.keep(Client(network["b"], scene.ear(network["b"]), network.gateway))
        self.devices = [scene.device(network["a"], host=f"host-{number}", addresses=self._addresses())
                        for number in range(HOSTS)]
        self.figures = DaemonFigures(self.daemon.box.find("mdnsproxy"), mdnsproxy_path())
        self.events = 0

    def _addresses(self):
        return [f"10.1.0.{self.dice.randint(3, 250)}", f"fd00:1::{self.dice.randint(3, 0xFFFF):x}"]

    def _event(self):
        device = self.dice.choice(self.devices)
        choice = self.dice.random()
        if choice < 0.45 and len(device.services) < 30:
            device.publish(f"Service {self.dice.randint(0, 99)}", "_ipp._tcp", self.dice.randint(1, 65535),
                           txt=["t" * self.dice.randint(0, 200)], subtypes=("_universal",) if self.dice.random() < 0.3
                           else ())
        elif choice < 0.8 and device.services:
            device.withdraw(self.dice.choice(device.services))
        elif choice < 0.95:
            device.change_addresses(self._addresses())
        else:
            device.announce()
        self.events += 1

    def goes_on(self, seconds, per_second=40):
        """At random intervals; the daemon has to stand it."""
        end = time.monotonic() + seconds
        shown = time.monotonic()
        while time.monotonic() < end:
            if time.monotonic() >= shown + SECONDS_PER_FIGURE:
                shown += SECONDS_PER_FIGURE
                print(f"after {self.events} events: {self.figures}")
            self._event()
            assert self.daemon.daemon_status is None, self.daemon.logs()
            let_pass(self.dice.expovariate(per_second))

    def everything_goes(self):
        for device in self.devices:
            for service in list(device.services):
                device.withdraw(service)
            device.say_goodbye(device.address_records())
        wait_until(lambda: not self.client.held(), SETTLES_WITHIN,
                   lambda: f"goodbyes; link B still holds {self.client.held()}")


def returns_to_where_it_started(scene, seconds):
    """Warms up, lets everything go and takes the figures; then churns that long, lets everything go and compares."""
    churn = Churn(scene, chosen_seed())
    churn.goes_on(min(10, seconds / 2))
    churn.everything_goes()
    figures = churn.figures
    blocks, descriptors, resident = figures.blocks, figures.descriptors, figures.memory
    print(f"at first: {figures}")
    churn.goes_on(seconds)
    print(f"at work: {figures}")
    churn.everything_goes()
    print(f"at last, after {churn.events} events: {figures}")
    wait_until(lambda: (figures.blocks, figures.descriptors) == (blocks, descriptors), SETTLES_WITHIN,
               lambda: f"{blocks} blocks and {descriptors} descriptors, but {figures}")
    assert figures.is_sanitized or figures.memory <= resident + RESIDENT_SLACK, (
        f"{resident} bytes, then {figures.memory}")
    assert churn.daemon.stop() == 10
