# SPDX-License-Identifier: MIT
"""The air between the two hosts: every packet on it, and a stranger on the far host who says what he likes."""

import contextlib
import ctypes
import os

from testbed import dns
from testbed.ear import Ear
from testbed.sockets import open_on
from testbed.waiting import wait_until

_CLONE_NEWNET = 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)


def _enter(fd):
    if _libc.setns(fd, _CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), "setns")


class Side:
    """The far host's end of the link, as the test bed describes one."""

    name, interface, ipv4, ipv6 = "far", "eth0", True, True

    def __init__(self, host):
        self.ns = self
        self._path = f"/run/netns/{host.name}"

    @contextlib.contextmanager
    def entered(self):
        before = os.open("/proc/thread-self/ns/net", os.O_RDONLY | os.O_CLOEXEC)
        inside = os.open(self._path, os.O_RDONLY | os.O_CLOEXEC)
        try:
            _enter(inside)
            yield self
        finally:
            _enter(before)
            os.close(inside)
            os.close(before)


class Air(Ear):
    """Hears everything from its making on. `near`: the addresses that the near host sends from."""

    def __init__(self, link):
        side = Side(link.far)
        super().__init__(side)
        addresses = link.near.sh("ip", "-o", "addr", "show", "dev", "eth0").stdout.split()
        self.near = [address.split("/")[0] for kind, address in zip(addresses, addresses[1:])
                     if kind in ("inet", "inet6")]
        self._sockets = open_on(side)

    def say(self, *answers, over="both"):
        """A response with these records, over both protocols or one of "IPv4" and "IPv6"."""
        self.send(dns.encode(dns.Message(flags=dns.RESPONSE, answers=list(answers))), over)

    def tell(self, *answers):
        """The same to the near host alone, over IPv4."""
        for opened, group in self._sockets:
            if ":" not in group[0]:
                message = dns.encode(dns.Message(flags=dns.RESPONSE, answers=list(answers)))
                opened.sendto(message, (next(address for address in self.near if ":" not in address), group[1]))

    def say_first(self, *answers, over="both"):
        """The same, as soon as the far host's addresses can be used."""
        def is_said():
            with contextlib.suppress(OSError):
                self.say(*answers, over=over)
                return True
            return False
        wait_until(is_said, 15, "the link")

    def send(self, message, over="both"):
        for opened, group in self._sockets:
            if over in ("both", "IPv6" if ":" in group[0] else "IPv4"):
                opened.sendto(message, group)

    def ask(self, name, kind):
        message = dns.encode(dns.Message(questions=[dns.Question(dns.labels(name), kind)]))
        for opened, group in self._sockets:
            opened.sendto(message, group)

    def probes(self, name, since=0.0):
        """The near host's probes for a name, each once however many protocols there are: those over IPv4."""
        return [packet for packet in self.sent_by(*self.near, since=since)
                if packet.message and not packet.message.is_response and packet.message.authorities
                and ":" not in packet.source
                and any(question.kind == dns.ANY and dns.same_name(question.name, name)
                        for question in packet.message.questions)]

    def said(self, name, kind, since=0.0, **narrow):
        """The near host's answers of that name and type, those over IPv4."""
        return [(packet, record) for packet, record in self.heard(name, kind, sources=self.near, since=since, **narrow)
                if ":" not in packet.source]

    def close(self):
        super().close()
        for opened, _ in self._sockets:
            opened.close()
