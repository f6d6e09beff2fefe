# SPDX-License-Identifier: MIT
"""Multicast DNS sockets in a namespace (RFC 6762: port 5353, hop limit 255)."""

import socket

PORT = 5353
GROUP4, GROUP6 = "224.0.0.251", "ff02::fb"


def _shared(family):
    opened = socket.socket(family, socket.SOCK_DGRAM | socket.SOCK_CLOEXEC)
    opened.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    opened.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
    opened.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 22)
    return opened


def open_ipv4(interface_index):
    opened = _shared(socket.AF_INET)
    request = socket.inet_aton(GROUP4) + bytes(4) + interface_index.to_bytes(4, "little")
    opened.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, request)
    opened.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, request)
    opened.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 255)
    opened.bind(("", PORT))
    return opened


def open_ipv6(interface_index):
    opened = _shared(socket.AF_INET6)
    opened.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 1)
    index = interface_index.to_bytes(4, "little")
    opened.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_JOIN_GROUP, socket.inet_pton(socket.AF_INET6, GROUP6) + index)
    opened.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_IF, index)
    opened.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_HOPS, 255)
    opened.bind(("::", PORT))
    return opened


def open_on(link):
    """The sockets of a host on a link, with the address that each sends to."""
    index = link.ns.index(link.interface)
    with link.ns.entered():
        opened = []
        if link.ipv4:
            opened.append((open_ipv4(index), (GROUP4, PORT)))
        if link.ipv6:
            opened.append((open_ipv6(index), (GROUP6, PORT, 0, index)))
        return opened
