# SPDX-License-Identifier: MIT
"""The driver program, by which a test calls the functions of dns_sd.h in a namespace."""

import collections
import os
import queue
import re
import subprocess
import time

from testbed import wait_until
from testbed.dialogue import collect
from testbed.dns import A, AAAA, PTR, SRV, TXT  # noqa: F401

DEADLINE = 15.0  # seconds; a condition that has not come by then never will

SHARE = 0x4000
SHARED, UNIQUE, NO_AUTO_RENAME = 0x10, 0x20, 0x8
BAD_PARAM, BAD_REFERENCE, BAD_STATE, BAD_FLAGS, UNSUPPORTED = -65540, -65541, -65542, -65543, -65544
NAME_CONFLICT, BAD_INTERFACE, NOT_RUNNING = -65548, -65552, -65563

SANITIZER = re.compile(r"(Address|Leak)Sanitizer|: runtime error: ")


def is_sanitized():
    """Whether driver and library were built with the sanitizers."""
    symbols = subprocess.run(["nm", os.environ["DNS_SD_DRIVER"]], check=True, capture_output=True, text=True).stdout
    return "__asan_init" in symbols


Reply = collections.namedtuple("Reply", "name kind flags interface error fields time")


class Driver:
    """The driver program on a host. Its methods are the functions of dns_sd.h; each returns the error code."""

    def __init__(self, host, prefix=(), env=None):
        self.host = host
        self.log, self.replies, self.lost = [], [], None
        self.answers = queue.Queue()
        self.process = subprocess.Popen(
            host.command(*prefix, os.environ["DNS_SD_DRIVER"]), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, text=True, bufsize=1, env={**os.environ, **(env or {})})
        self.errors = []
        collect(self.process.stdout, self._line)
        self._errors_reader = collect(self.process.stderr, self.errors.append)

    def _line(self, line):
        now = time.monotonic()
        self.log.append(line)
        kind, *rest = line.split("\t")
        if kind == "done":
            self.answers.put(rest)
        elif kind == "lost":
            self.lost = int(rest[0])
        elif kind == "reply":
            name, what, flags, interface, error, *fields = rest
            self.replies.append(Reply(name, what, int(flags), int(interface), int(error), fields, now))

    def send(self, *fields):
        self.log.append("> " + " ".join(str(field) for field in fields))
        self.process.stdin.write("\t".join(str(field) for field in fields) + "\n")
        self.process.stdin.flush()

    def do(self, *fields):
        self.send(*fields)
        try:
            return int(self.answers.get(timeout=DEADLINE)[0])
        except queue.Empty:
            raise AssertionError(f"no answer to {fields}\n{self.dump()}") from None

    @staticmethod
    def text(value):
        if value is None:
            return "-"
        return (value if isinstance(value, bytes) else value.encode()).hex()

    def connect(self, name="c"):
        return self.do("connect", name)

    def browse(self, name, interface, regtype, domain=None, connection="c", flags=SHARE):
        return self.do("browse", name, connection, flags, interface, self.text(regtype), self.text(domain))

    def resolve(self, name, interface, instance, regtype, domain="local.", connection="c", flags=SHARE):
        return self.do("resolve", name, connection, flags, interface, self.text(instance), self.text(regtype),
                       self.text(domain))

    def query(self, name, interface, fullname, rrtype, connection="c", flags=SHARE | 0x500):
        return self.do("query", name, connection, flags, interface, self.text(fullname), rrtype)

    def register(self, name, interface, instance, regtype="_ipp._tcp", domain="local", host="printer.local.", port=631,
                 txt=b"\x03a=1", connection="c", flags=SHARE):
        return self.do("register", name, connection, flags, interface, self.text(instance), self.text(regtype),
                       self.text(domain), self.text(host), port, self.text(txt))

    def record(self, name, interface, fullname, rrtype, rdata, ttl=0, connection="c", flags=SHARED):
        return self.do("record", name, connection, flags, interface, self.text(fullname), rrtype, self.text(rdata), ttl)

    def update(self, name, rdata, ttl=0):
        return self.do("update", name, self.text(rdata), ttl)

    def remove(self, name):
        return self.do("remove", name)

    def release(self, name):
        return self.do("release", name)

    def when(self, name, *command):
        """Runs a command inside the next callback of `name`; it prints a 'done' of its own then."""
        return self.do("when", name, "|".join(str(field) for field in command))

    def of(self, name):
        return [reply for reply in list(self.replies) if reply.name == name]

    def wait(self, name, count=1, deadline=DEADLINE):
        """The first `count` replies for `name`."""
        try:
            wait_until(lambda: len(self.of(name)) >= count, deadline, f"{count} replies for {name}")
        except AssertionError as error:
            raise AssertionError(f"{error}\n{self.dump()}") from None
        return self.of(name)[:count]

    def end(self, deadline=DEADLINE):
        """Closes the driver's input, so that it returns from main, and gives its exit status."""
        if not self.process.stdin.closed:
            self.process.stdin.close()
        return self.process.wait(timeout=deadline)

    def wait_end(self, deadline=DEADLINE):
        return self.process.wait(timeout=deadline)

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()

    def sanitizer_report(self):
        """What a sanitizer had to say about the driver, which has ended; normally nothing."""
        self._errors_reader.join(DEADLINE)
        first = next((number for number, line in enumerate(self.errors) if SANITIZER.search(line)), len(self.errors))
        return "\n".join(self.errors[first:])

    def dump(self):
        return "\n".join([f"--- driver on {self.host.name}", *self.log, *self.errors])


def text_of(field):
    return bytes.fromhex(field).decode()


def add_flag(reply):
    return bool(reply.flags & 2)
