# SPDX-License-Identifier: MIT
"""SIGTERM at random moments, in several networks at once."""

import random
import threading
import time

import testbed
from testbed import Client, chosen_seed, let_pass, rule, rules_list, wait_until

RULES = rules_list(rule("_ipp._tcp", "a", "b"), rule("_http._tcp", "a", "b"))
SERVICES = 40
# Start-up pauses for a second, and for half a second a rule; the services are on link B some two seconds later.
LATEST = 6.0
# A second for the goodbyes of a full table; this machine may be busy.
ENDS_WITHIN = 5


class Station:
    """A network of its own, in which the gateway is started and terminated again and again."""

    def __init__(self, seed):
        self.dice = random.Random(seed)
        self.network = testbed.Network("a", "b")
        self.ear = testbed.Ear(self.network["b"])
        self.client = Client(self.network["b"], self.ear, self.network.gateway)
        self.device = testbed.Device(self.network["a"])
        for number in range(SERVICES):
            self.device.publish(f"Service {number}", "_ipp._tcp" if number % 2 else "_http._tcp", 1000 + number)

    def load(self, until):
        """Services change and go and come until then."""
        while time.monotonic() < until:
            if self.dice.random() < 0.3:
                self.device.change_addresses([f"10.1.0.{self.dice.randint(3, 250)}",
                                              f"fd00:1::{self.dice.randint(3, 250):x}"])
            else:
                service = self.dice.choice(self.device.services)
                self.device.withdraw(service)
                self.device.publish(service.name[0].decode(), service.type[0].decode() + "._tcp",
                                    self.dice.randint(1, 9999))
            let_pass(min(0.05, until - time.monotonic()))

    def terminate_once(self):
        delay = self.dice.uniform(0, LATEST)
        with testbed.Daemon(self.network.gateway, RULES) as daemon:
            started = time.monotonic()
            daemon.start()
            assert daemon.pid  # from its PID file on it is the daemon that a signal ends
            self.load(started + delay)
            asked = time.monotonic() - started
            try:
                status = daemon.stop(within=ENDS_WITHIN)
                assert status == 10, f"exit status {status}"
                assert daemon.status_file.startswith("10\n"), daemon.status_file
                assert daemon.pid_file is None
                wait_until(lambda: not self.client.held(), 2,
                           lambda: f"goodbyes; link B still holds {self.client.held()}")
            except AssertionError as error:
                raise AssertionError(f"SIGTERM {asked:.3f} s after the start: "
                                     f"{error}\n{daemon.logs()}\n{self.ear.story()}") from error

    def close(self):
        self.device.close()
        self.client.close()
        self.ear.close()
        self.network.close()


def terminate_often(times, stations):
    """Terminates a gateway that often, spread over that many networks at a time."""
    seed = chosen_seed()
    left = list(range(times))
    broken = []

    def work(number):
        station = Station(seed + number)
        try:
            while not broken:
                try:
                    left.pop()
                except IndexError:
                    return
                station.terminate_once()
        except AssertionError as error:
            broken.append(error)
        finally:
            station.close()

    workers = [threading.Thread(target=work, args=(number,)) for number in range(stations)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    assert not broken, broken[0]
