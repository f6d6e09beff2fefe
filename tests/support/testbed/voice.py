# SPDX-License-Identifier: MIT
"""What a host on a link says by multicast, byte for byte."""

import socket

from . import dns
from .sockets import open_on


class Voice:
    """Over every protocol that the link has, unless `over` narrows it to one of "IPv4" and "IPv6"."""

    def __init__(self, link):
        self.sockets = open_on(link)  # each with the address that it sends to

    def send(self, data, over=None):
        for opened, group in self.sockets:
            if over in (None, "IPv6" if opened.family == socket.AF_INET6 else "IPv4"):
                opened.sendto(data, group)

    def respond(self, records, over=None):
        """A response with these records."""
        self.send(dns.response(*records), over)

    def ask(self, name, kind, over=None):
        self.send(dns.query(dns.Question(dns.labels(name), kind)), over)

    def close(self):
        for opened, _ in self.sockets:
            opened.close()
