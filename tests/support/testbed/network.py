# SPDX-License-Identifier: MIT
"""A gateway and its links.

        link a                 gateway                link b
    [ br0 10.1.0.2 ]----[ a 10.1.0.1 | b 10.2.0.1 ]----[ br0 10.2.0.2 ]
      fd00:1::2            fd00:1::1   fd00:2::1           fd00:2::2

A link is a namespace with a bridge in it: the bridge is the wire, and its own address is that of the one host that
every link has. Further hosts and gateways are attached to the bridge.
"""

import json

from .closing import Closing
from .namespace import Namespace


def addresses_on(namespace, interface):
    """Every address that packets from there may come from, the link-local one too."""
    found = json.loads(namespace.run(f"ip -j addr show dev {interface}"))
    return [address["local"] for address in found[0]["addr_info"]]


class Link:
    """One link: its wire, and the host `.2` on it."""

    def __init__(self, name, number, ipv4=True, ipv6=True):
        self.name = name
        self.number = number
        self.ipv4 = ipv4
        self.ipv6 = ipv6
        self.interface = "br0"
        self.ns = Namespace(f"link {name}")
        quiet_interfaces(self.ns)
        if not ipv6:
            self.ns.set("net/ipv6/conf/default/disable_ipv6", 1)
        self.ns.run(f"ip link add {self.interface} type bridge mcast_snooping 0")
        self.ns.run(f"ip link set dev {self.interface} up")
        if ipv4:
            self.ns.run(f"ip addr add {self.address4(2)}/24 dev {self.interface}")
        if ipv6:
            self.ns.run(f"ip addr add {self.address6(2)}/64 dev {self.interface} nodad")

    def address4(self, host):
        return f"10.{self.number}.0.{host}"

    def address6(self, host):
        return f"fd00:{self.number}::{host:x}"

    def addresses(self, host=2):
        """What the host on this link has, IPv4 first."""
        return ([self.address4(host)] if self.ipv4 else []) + ([self.address6(host)] if self.ipv6 else [])

    def attach(self, other, interface, host):
        """Puts an interface of the namespace `other` on this link, with both of host number `host`'s addresses."""
        port = f"port{host}"
        self.ns.run(f"ip link add {port} type veth peer name {interface} netns {other.path}")
        self.ns.run(f"ip link set dev {port} master {self.interface} up")
        other.run(f"ip link set dev {interface} up")
        self.give_addresses(other, interface, host)

    def give_addresses(self, other, interface, host):
        """Also once more: the kernel takes some of them away when the interface goes down."""
        other.run(f"ip addr replace {self.address4(host)}/24 dev {interface}")
        other.run(f"ip addr replace {self.address6(host)}/64 dev {interface} nodad")

    def close(self):
        self.ns.close()


class Host:
    """A further host on a link, with addresses of its own. It is a place to open sockets at, as a link is."""

    interface = "eth0"

    def __init__(self, link, number):
        self.ns = Namespace(f"host {number} of link {link.name}")
        self.name, self.number, self.ipv4, self.ipv6 = link.name, link.number, link.ipv4, link.ipv6
        quiet_interfaces(self.ns)
        link.attach(self.ns, self.interface, number)

    def close(self):
        self.ns.close()


class Network(Closing):
    """Links by name, and one gateway (host `.1` of every link, interface named as the link) that routes between
    them."""

    def __init__(self, *names, ipv4_only=(), ipv6_only=()):
        self.gateway = self.new_gateway("gateway")
        self.links = {}
        for number, name in enumerate(names, start=1):
            link = Link(name, number, ipv4=name not in ipv6_only, ipv6=name not in ipv4_only)
            self.links[name] = link
            link.attach(self.gateway, name, host=1)
            if link.ipv4:
                link.ns.run(f"ip route add default via {link.address4(1)}")
            if link.ipv6:
                link.ns.run(f"ip -6 route add default via {link.address6(1)}")

    def __getitem__(self, name):
        return self.links[name]

    def gateway_addresses(self, name):
        """Every address of the gateway's interface on that link, the link-local one included."""
        return addresses_on(self.gateway, name)

    @staticmethod
    def new_gateway(name, links=(), host=3):
        """A further one; it is that host of these links, by interfaces that are named as they are."""
        gateway = Namespace(name)
        quiet_interfaces(gateway)
        gateway.set("net/ipv4/ip_forward", 1)
        gateway.set("net/ipv6/conf/all/forwarding", 1)
        for link in links:
            link.attach(gateway, link.name, host)
        return gateway

    def close(self):
        for link in self.links.values():
            link.close()
        self.gateway.close()


class End:
    """One end of a wire: a place to open sockets at, as a link is."""

    ipv4, ipv6 = True, True

    def __init__(self, namespace, interface):
        self.ns, self.name, self.interface = namespace, namespace.name, interface


def wire(one, interface1, other, interface2, ipv4="10.9.0", ipv6="fd09::"):
    """A veth pair between two namespaces, host `.1` on the first and `.2` on the second; None leaves a protocol out."""
    one.run(f"ip link add {interface1} type veth peer name {interface2} netns {other.path}")
    for namespace, interface, number in ((one, interface1, 1), (other, interface2, 2)):
        if ipv6 is None:
            namespace.set(f"net/ipv6/conf/{interface}/disable_ipv6", 1)
        else:
            namespace.set(f"net/ipv6/conf/{interface}/accept_dad", 0)
            namespace.run(f"ip addr add {ipv6}{number}/64 dev {interface} nodad")
        if ipv4 is not None:
            namespace.run(f"ip addr add {ipv4}.{number}/24 dev {interface}")
        namespace.run(f"ip link set {interface} up")


def quiet_interfaces(namespace):
    """Addresses are usable at once (no duplicate detection), and no router is looked for."""
    namespace.set("net/ipv6/conf/default/accept_dad", 0)
    namespace.set("net/ipv6/conf/default/accept_ra", 0)
    namespace.set("net/ipv6/conf/default/router_solicitations", 0)
