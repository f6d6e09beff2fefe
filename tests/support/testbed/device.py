# SPDX-License-Identifier: MIT
"""A host on a link that says on the air exactly what the test tells it, and answers questions about it: for names,
addresses and moments that a ready-made responder would not let through."""

import select
import socket
import threading

from . import dns
from .closing import Closing
from .voice import Voice


class Service:
    def __init__(self, host, instance, kind, port, txt, subtypes):
        self.type = dns.labels(f"{kind}.local")
        self.name = dns.labels((instance,)) + self.type
        self.subtypes = [dns.labels(f"{subtype}._sub.{kind}.local") for subtype in subtypes]
        self.srv = dns.Record(self.name, dns.SRV, (0, 0, port, host), dns.HOST_TTL, True)
        self.txt = dns.Record(self.name, dns.TXT, dns.txt_data(txt), dns.OTHER_TTL, True)

    def change(self, port, txt):
        """Returns the records that are other ones now."""
        if port is not None:
            self.srv = dns.Record(self.name, dns.SRV, (0, 0, port, self.srv.data[3]), dns.HOST_TTL, True)
        if txt is not None:
            self.txt = dns.Record(self.name, dns.TXT, dns.txt_data(txt), dns.OTHER_TTL, True)
        return [self.srv] * (port is not None) + [self.txt] * (txt is not None)

    @property
    def pointers(self):
        return [dns.Record(name, dns.PTR, self.name) for name in [self.type, *self.subtypes]]

    @property
    def kind(self):
        """What is said to those alone who ask for the types of a link (RFC 6763 section 9)."""
        return dns.Record(dns.labels("_services._dns-sd._udp.local"), dns.PTR, self.type)

    @property
    def records(self):
        return [*self.pointers, self.srv, self.txt]


class Device(Closing):
    """`host`: the host name's first label. `addresses`: what the host claims to have; by default what it has.
    `address_ttl`: in seconds. A shy one says nothing to port 5353, and answers the questions of other ports alone."""

    def __init__(self, link, host="printer", addresses=None, address_ttl=dns.HOST_TTL, is_shy=False):
        self.link = link
        self.address_ttl = address_ttl
        self.is_shy = is_shy
        self.host = dns.labels((host, "local"))
        self.addresses = list(link.addresses() if addresses is None else addresses)
        self.services = []
        self._lock = threading.Lock()
        self._voice = Voice(link)
        self._stop_reading, self._stop = socket.socketpair()
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    # --- what it says

    def publish(self, instance, kind="_ipp._tcp", port=631, txt=(), subtypes=()):
        """Adds a service and announces it (with the host's addresses). Returns it."""
        service = Service(self.host, instance, kind, port, txt, subtypes)
        with self._lock:
            self.services.append(service)
        self.say(service.records + self.address_records())
        return service

    def change(self, service, port=None, txt=None):
        """The service has another port or other TXT data from now on; only what has changed is announced. Returns these
        records."""
        with self._lock:
            changed = service.change(port, txt)
        self.say(changed)
        return changed

    def withdraw(self, service):
        """Says goodbye for the service; the host stays."""
        with self._lock:
            self.services.remove(service)
        self.say_goodbye(service.records)

    def change_addresses(self, addresses):
        """The host has other addresses from now on; announced with the cache-flush bit."""
        with self._lock:
            self.addresses = list(addresses)
        self.say(self.address_records())

    def announce(self):
        with self._lock:
            services = list(self.services)
        self.say([record for service in services for record in service.records] + self.address_records())

    def say(self, records):
        self.send_bytes(dns.response(*records))

    def say_goodbye(self, records):
        self.say([dns.Record(record.name, record.kind, record.data, 0, record.flush) for record in records])

    def send(self, message):
        self.send_bytes(dns.encode(message))

    def send_bytes(self, data):
        if not self.is_shy:
            self._voice.send(data)

    def address_records(self):
        return [dns.Record(self.host, dns.AAAA if ":" in address else dns.A, address, self.address_ttl, True)
                for address in self.addresses]

    # --- what it answers

    def _serve(self):
        while True:
            ready = select.select([opened for opened, _ in self._voice.sockets] + [self._stop_reading], [], [])[0]
            if self._stop_reading in ready:
                return
            for opened, group in self._voice.sockets:
                if opened in ready:
                    self._answer(opened, group)

    def _answer(self, opened, group):
        try:
            packet, sender = opened.recvfrom(9000)
            message = dns.decode(packet)
        except (ValueError, OSError):
            return
        if message.is_response:
            return
        with self._lock:
            known = [record for service in self.services
                     for record in [*service.records, service.kind]] + self.address_records()
        answers = [record for question in message.questions for record in known
                   if question.kind in (record.kind, dns.ANY) and dns.same_name(question.name, record.name)]
        answers = [record for record in dict.fromkeys(answers)
                   if not any(dns.same_name(record.name, seen.name)
                              and (record.kind, record.data) == (seen.kind, seen.data)
                              and seen.ttl * 2 >= record.ttl for seen in message.answers)]
        if answers and sender[1] == group[1]:
            if not self.is_shy:
                opened.sendto(dns.response(*answers), group)
        elif answers:
            # A question from another port wants its answer there, with its number and itself (RFC 6762 section 6.7).
            answer = dns.Message(dns.RESPONSE, questions=message.questions, answers=answers)
            opened.sendto(packet[:2] + dns.encode(answer)[2:], sender)

    def close(self):
        """Vanishes without a word."""
        self._stop.send(b".")
        self._thread.join()
        self._voice.close()
        self._stop.close()
        self._stop_reading.close()
