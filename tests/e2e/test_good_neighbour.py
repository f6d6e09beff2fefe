# SPDX-License-Identifier: MIT
"""A host of link b has the name that a forwarded host of link a has, too. It keeps it.

      link a                gateway                    link b
    [ device ]----- a [ mdnsproxy (two) ] b -----[ avahi-daemon, client ]
"""

import signal
import time

import pytest
from testbed import Network, addresses_on, dns, rule, stays_true, wait_until
from testbed.avahi import Avahi

OWN, OTHER = "printer.local", "printer-2.local"
SERVICE = "Office Printer"
INSTANCE = f"{SERVICE}._ipp._tcp.local"
DEVICE_ADDRESSES = ["10.1.0.77", "fd00:1::4d"]
BACK_WITHIN = 20  # seconds: the name is given back ten after its owner's last address has gone


class Guest:
    """avahi-daemon on a link, with the host name "printer"."""

    def __init__(self, scene, link, ipv4=True, ipv6=True):
        has4, has6 = ("yes" if has else "no" for has in (ipv4, ipv6))
        self.avahi = scene.keep(Avahi(link.ns, server={"host-name": "printer", "use-ipv4": has4, "use-ipv6": has6},
                                      publish={"publish-aaaa-on-ipv4": has6, "publish-a-on-ipv6": has4}))
        self.avahi.start()

    def is_undisturbed(self):
        return "conflict" not in self.story().lower() and "printer-2" not in self.story()

    def story(self):
        return self.avahi.said

    def goes(self):
        """With a goodbye."""
        self.avahi.program.kill(signal.SIGTERM)


def forward(scene, net):
    scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
    device = scene.device(net["a"], addresses=DEVICE_ADDRESSES)
    device.publish(SERVICE)
    return device


def is_usable(ear, gateways, host):
    """Whether a listener on link b would come to the device by way of that name."""
    held = set(ear.cached(gateways))
    has_addresses = all((host, dns.AAAA if ":" in address else dns.A, address) in held for address in DEVICE_ADDRESSES)
    targets = [data[3] for name, kind, data in held if kind == dns.SRV and name == INSTANCE.lower()]
    return has_addresses and targets == [dns.labels(host)]


def wait_usable(ear, gateways, host, within):
    wait_until(lambda: is_usable(ear, gateways, host), within,
               lambda: f"the printer as {host}, but {sorted(map(str, ear.cached(gateways)))}")


def addresses_said(ear, gateways, host, since=0.0):
    return [record for kind in (dns.A, dns.AAAA) for _, record in ear.heard(host, kind, sources=gateways, since=since)
            if record.ttl]


@pytest.mark.parametrize("families", [{}, {"ipv6": False}, {"ipv4": False}], ids=["both", "ipv4", "ipv6"])
def test_who_was_there_first_keeps_the_name_and_the_printer_can_be_opened(scene, net, ear, families):
    guest = Guest(scene, net["b"], **families)
    gateway = net.gateway_addresses("b")
    forward(scene, net)
    wait_usable(ear, gateway, OTHER, 8)
    assert not addresses_said(ear, gateway, OWN), ear.story()
    client = scene.browser(net["b"])
    found = client.sees(SERVICE)
    assert found.server == f"{OTHER}." and found.port == 631
    assert client.resolve(f"{OTHER}.") == DEVICE_ADDRESSES
    stays_true(guest.is_undisturbed, 2, guest.story)


def test_who_comes_later_gets_the_name_without_a_rename_and_gives_it_back_when_it_goes(scene, net, ear):
    gateway = net.gateway_addresses("b")
    forward(scene, net)
    wait_usable(ear, gateway, OWN, 8)
    client = scene.browser(net["b"])
    assert client.sees(SERVICE).server == f"{OWN}."
    guest = Guest(scene, net["b"])
    came = time.monotonic()
    wait_usable(ear, gateway, OTHER, 4)
    stays_true(guest.is_undisturbed, 3, guest.story)
    assert not addresses_said(ear, gateway, OWN, since=came + 1), ear.story()
    assert client.details(SERVICE).server == f"{OTHER}."
    assert client.resolve(f"{OTHER}.") == DEVICE_ADDRESSES
    guest.goes()
    wait_usable(ear, gateway, OWN, BACK_WITHIN)
    wait_until(lambda: not [key for key in ear.cached(gateway) if key[0] == OTHER], 3, "nothing of the other name")
    assert client.details(SERVICE).server == f"{OWN}."
    assert [what for _, what, _ in client.events].count("removed") == 0, client.events


def test_two_gateways_keep_the_hosts_name_while_its_addresses_change_and_both_give_way(scene, net, ear):
    second = scene.keep(Network.new_gateway("second gateway", (net["a"], net["b"])))
    scene.daemon(second, rule("_ipp._tcp", "a", "b"), name="second").start_and_wait()
    device = forward(scene, net)
    gateways = net.gateway_addresses("b") + addresses_on(second, "b")
    wait_usable(ear, gateways, OWN, 8)
    for last in (78, 79, 77):
        addresses = [f"10.1.0.{last}", f"fd00:1::{last:x}"]
        # Longer than a second, in which caches keep what has been said (RFC 6762 section 10.2).
        stays_true(lambda: not addresses_said(ear, None, OTHER), 1.2, "one has renamed the host for the other")
        changed = time.monotonic()
        device.change_addresses(addresses)
        wait_until(lambda: {record.data for record in addresses_said(ear, gateways, OWN,
                                                                     since=changed)} >= set(addresses), 5,
                   "the new addresses")
    wait_usable(ear, gateways, OWN, 5)
    guest = Guest(scene, net["b"])
    wait_usable(ear, gateways, OTHER, 6)
    stays_true(guest.is_undisturbed, 2, guest.story)
