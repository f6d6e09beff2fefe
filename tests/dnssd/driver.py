# SPDX-License-Identifier: MIT
"""The vocabulary of the library's network tests: links in namespaces, the driver program, an independent responder."""

import collections
import os
import queue
import re
import subprocess
import sys
import threading
import time

DEADLINE = 15.0  # seconds; a condition that has not come by then never will

SHARE = 0x4000
SHARED, UNIQUE, NO_AUTO_RENAME = 0x10, 0x20, 0x8
A, PTR, TXT, AAAA, SRV = 1, 12, 16, 28, 33
BAD_PARAM, BAD_REFERENCE, BAD_STATE, BAD_FLAGS, UNSUPPORTED = -65540, -65541, -65542, -65543, -65544
NAME_CONFLICT, BAD_INTERFACE, NOT_RUNNING = -65548, -65552, -65563

SANITIZER = re.compile(r"(Address|Leak)Sanitizer|: runtime error: ")

_serial = 0


def sh(*command, check=True):
    return subprocess.run(command, check=check, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def wait_for(condition, what, deadline=DEADLINE):
    """Waits until `condition` returns something true, and returns that."""
    end = time.monotonic() + deadline
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"not within {deadline} s: {what}")
        time.sleep(0.02)


def stays_true(condition, seconds, what):
    """What must not happen does not, for so long; `condition` is looked at all the time."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        assert condition(), f"no longer true: {what() if callable(what) else what}"
        time.sleep(0.02)
    assert condition(), f"no longer true: {what() if callable(what) else what}"


def sleep_until(moment):
    """For what is done at a certain moment of the protocol, which nothing that could be waited for tells."""
    time.sleep(max(0.0, moment - time.monotonic()))


def is_sanitized():
    """Whether driver and library were built with the sanitizers."""
    return "__asan_init" in sh("nm", os.environ["DNS_SD_DRIVER"]).stdout


class Host:
    """A network namespace."""

    def __init__(self, name):
        global _serial
        _serial += 1
        self.name = f"dnssd{os.getpid()}x{_serial}{name}"
        sh("ip", "netns", "add", self.name)
        try:
            self.sh("ip", "link", "set", "lo", "up")
        except BaseException:
            self.remove()
            raise

    def sh(self, *command, check=True):
        return sh("ip", "netns", "exec", self.name, *command, check=check)

    def index(self, interface):
        return int(self.sh("cat", f"/sys/class/net/{interface}/ifindex").stdout)

    def remove(self):
        sh("ip", "netns", "pids", self.name, check=False)
        sh("ip", "netns", "del", self.name, check=False)


def link(host1, name1, host2, name2, ipv4="10.9.0", ipv6="fd09::"):
    """A veth pair between two hosts, .1 on the first and .2 on the second; null leaves a protocol out."""
    sh("ip", "link", "add", name1, "netns", host1.name, "type", "veth", "peer", "name", name2, "netns", host2.name)
    for host, name, number in ((host1, name1, 1), (host2, name2, 2)):
        if ipv6 is None:
            host.sh("sysctl", "-qw", f"net.ipv6.conf.{name}.disable_ipv6=1")
        else:
            host.sh("sysctl", "-qw", f"net.ipv6.conf.{name}.accept_dad=0")
            host.sh("ip", "addr", "add", f"{ipv6}{number}/64", "dev", name, "nodad")
        if ipv4 is not None:
            host.sh("ip", "addr", "add", f"{ipv4}.{number}/24", "dev", name)
        host.sh("ip", "link", "set", name, "up")


def rdata_name(text):
    """An uncompressed wire name of plain labels without dots."""
    return b"".join(bytes([len(label)]) + label.encode() for label in text.rstrip(".").split(".")) + b"\0"


def txt_data(*entries):
    return b"".join(bytes([len(entry)]) + entry.encode() for entry in entries) or b"\0"


Reply = collections.namedtuple("Reply", "name kind flags interface error fields time")


class Reader(threading.Thread):
    """Collects a process's lines."""

    def __init__(self, stream, sink):
        super().__init__(daemon=True)
        self.stream, self.sink = stream, sink

    def run(self):
        for line in self.stream:
            self.sink(line.rstrip("\n"), time.monotonic())


class Driver:
    """The driver program on a host. Its methods are the functions of dns_sd.h; each returns the error code."""

    def __init__(self, host, prefix=(), env=None, setup=()):
        self.host = host
        self.log, self.replies, self.lost = [], [], None
        self.answers = queue.Queue()
        program = os.environ["DNS_SD_DRIVER"]
        self.process = subprocess.Popen(
            ["ip", "netns", "exec", host.name, *setup, *prefix, program],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, bufsize=1,
            env={**os.environ, **(env or {})})
        self.errors = []
        Reader(self.process.stdout, self._line).start()
        self._errors_reader = Reader(self.process.stderr, lambda line, _: self.errors.append(line))
        self._errors_reader.start()

    def _line(self, line, now):
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
            wait_for(lambda: len(self.of(name)) >= count, f"{count} replies for {name}", deadline)
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
