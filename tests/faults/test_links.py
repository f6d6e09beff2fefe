# SPDX-License-Identifier: MIT
"""What happens to the gateway's own interfaces.

    link A                 gateway                  link B
    [ printer ]-----------[ a | mdnsproxy | b ]-----[ client ]
                            ^ the faults      ^
"""

import pytest
from testbed import Client, dns, rule, wait_until

SERVICE = "Office Printer._ipp._tcp.local"
SRV = (0, 0, 631, dns.labels("printer.local"))


class Gateway:
    """A gateway that has forwarded a printer from link A to link B."""

    def __init__(self, scene):
        self.network = scene.network("a", "b")
        self.ns = self.network.gateway
        self.daemon = scene.daemon(self.ns, rule("_ipp._tcp", "a", "b")).start_and_wait()
        self.device = scene.device(self.network["a"])
        self.device.publish("Office Printer")
        self.client = scene.keep(Client(self.network["b"], scene.ear(self.network["b"]), self.network.gateway))
        self.serves()

    def serves(self, within=15):
        assert self.client.finds(SERVICE, within=within) == SRV
        assert self.client.finds("printer.local", dns.A, within=within) == "10.1.0.2"
        self.is_up()

    def is_up(self):
        assert self.daemon.daemon_status is None and self.daemon.status_code == 0, self.daemon.status_file

    def withdraws(self, within=10):
        wait_until(lambda: not self.client.held(), within, lambda: f"goodbyes; link B still holds {self.client.held()}")
        self.is_up()

    def ends_clean(self):
        assert self.daemon.stop(within=5) == 10

    def give_addresses(self, name):
        """What the kernel took away when the interface went down."""
        self.network[name].give_addresses(self.ns, name, host=1)


@pytest.fixture
def gateway(scene):
    return Gateway(scene)


def test_the_source_goes_down_and_comes_up(gateway):
    gateway.ns.run("ip link set dev a down")
    gateway.withdraws()
    gateway.ns.run("ip link set dev a up")
    gateway.give_addresses("a")
    gateway.serves()
    gateway.ends_clean()
    wait_until(lambda: not gateway.client.held(), 2, "goodbyes")


def test_the_destination_goes_down_and_comes_up(gateway):
    gateway.ns.run("ip link set dev b down")
    gateway.ns.run("ip link set dev b up")
    gateway.give_addresses("b")
    gateway.serves()
    gateway.ends_clean()
    wait_until(lambda: not gateway.client.held(), 2, "goodbyes")


@pytest.mark.parametrize("name", ["a", "b"])
def test_an_address_is_lost_and_comes_back(gateway, name):
    link = gateway.network[name]
    gateway.ns.run(f"ip addr del {link.address4(1)}/24 dev {name}")
    gateway.ns.run(f"ip addr del {link.address6(1)}/64 dev {name}")
    gateway.is_up()
    gateway.give_addresses(name)
    gateway.serves()
    gateway.ends_clean()
    wait_until(lambda: not gateway.client.held(), 2, "goodbyes")


def test_the_source_vanishes(gateway):
    gateway.ns.run("ip link del dev a")
    gateway.withdraws()
    gateway.ends_clean()


def test_the_destination_vanishes(gateway):
    gateway.ns.run("ip link del dev b")
    gateway.device.publish("Second Printer", port=632)
    gateway.is_up()
    gateway.ends_clean()
