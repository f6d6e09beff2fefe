# SPDX-License-Identifier: MIT
"""What python3-zeroconf finds on a link: the view of a client there."""

import socket
import time

import zeroconf
from zeroconf import const

from .closing import Closing
from .printer import close_zeroconf, zeroconf_on
from .waiting import wait_until


class Browser(Closing):
    def __init__(self, link, kind="_ipp._tcp"):
        self.link = link
        self.kind = f"{kind}.local."
        self.events = []  # (time, "added" | "removed" | "updated", instance name)
        self.zeroconf = zeroconf_on(link)
        self._browser = zeroconf.ServiceBrowser(self.zeroconf, self.kind, handlers=[self._handle])

    def _handle(self, zeroconf, service_type, name, state_change):  # pylint: disable=redefined-outer-name
        what = state_change.name.lower()
        self.events.append((time.monotonic(), what, name[:-len(service_type) - 1]))

    @property
    def names(self):
        """The instances that are there now."""
        there = {}
        for _, what, name in list(self.events):
            if what == "added":
                there[name] = True
            elif what == "removed":
                there.pop(name, None)
        return list(there)

    def sees(self, name, within=5):
        wait_until(lambda: name in self.names, within,
                   lambda: f"{name!r} seen on link {self.link.name}, but {self.names}")
        return self.details(name)

    def loses(self, name, within=5):
        wait_until(lambda: name not in self.names, within, lambda: f"{name!r} gone from link {self.link.name}")

    def details(self, name, within=3):
        """Host, port, TXT and addresses, asked for on the link."""
        info = zeroconf.ServiceInfo(self.kind, f"{name}.{self.kind}")
        assert info.request(self.zeroconf, within * 1000), f"{name!r} cannot be resolved on link {self.link.name}"
        return info

    def resolve(self, host, within=3):
        """The addresses of a host name, asked for on the link, IPv4 first."""
        question = zeroconf.DNSOutgoing(const._FLAGS_QR_QUERY)
        for kind in (const._TYPE_A, const._TYPE_AAAA):
            question.add_question(zeroconf.DNSQuestion(host, kind, const._CLASS_IN))
        self.zeroconf.send(question)
        return wait_until(lambda: self.known_addresses(host), within, f"{host} resolved on link {self.link.name}")

    def known_addresses(self, host):
        """The addresses that this client holds for a host name at the moment, IPv4 first."""
        now = zeroconf.current_time_millis()
        records = [record for record in self.zeroconf.cache.entries_with_name(host.lower())
                   if isinstance(record, zeroconf.DNSAddress) and not record.is_expired(now)]
        families = {4: socket.AF_INET, 16: socket.AF_INET6}
        return sorted({socket.inet_ntop(families[len(record.address)], record.address) for record in records},
                      key=lambda address: (":" in address, address))

    def close(self):
        self._browser.cancel()
        close_zeroconf(self.zeroconf)
