# SPDX-License-Identifier: MIT
"""Network namespaces without a name: a descriptor of this process is all that keeps one alive, so nothing of it can
outlast the test, however the test ends."""

import contextlib
import ctypes
import os
import socket
import subprocess
import threading

_CLONE_NEWNET = 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)


def _check(result, what):
    if result != 0:
        error = ctypes.get_errno()
        raise OSError(error, f"{what}: {os.strerror(error)}")


class Namespace:
    """One network namespace. `name` is for messages only."""

    def __init__(self, name):
        self.name = name
        self.fd = -1
        made = threading.Thread(target=self._make)  # a thread of its own: the namespace of this one does not change
        made.start()
        made.join()
        if self.fd < 0:
            raise OSError(f"could not make the network namespace {name} (this needs root)")
        self.run("ip link set lo up")

    def _make(self):
        with contextlib.suppress(OSError):
            _check(_libc.unshare(_CLONE_NEWNET), "unshare")
            self.fd = os.open("/proc/thread-self/ns/net", os.O_RDONLY | os.O_CLOEXEC)

    @property
    def path(self):
        """A path by which other programs can name the namespace while this process lives."""
        return f"/proc/{os.getpid()}/fd/{self.fd}"

    @contextlib.contextmanager
    def entered(self):
        """Within it, this thread's new sockets (and its view of /proc/sys/net) belong to the namespace."""
        before = os.open("/proc/thread-self/ns/net", os.O_RDONLY | os.O_CLOEXEC)
        try:
            _check(_libc.setns(self.fd, _CLONE_NEWNET), f"setns({self.name})")
            yield self
        finally:
            _check(_libc.setns(before, _CLONE_NEWNET), "setns back")
            os.close(before)

    def command(self, *arguments):
        """The command line that runs `arguments` in the namespace."""
        return ["nsenter", f"--net={self.path}", "--", *arguments]

    def run(self, command):
        """Runs one command (a text without quotes) in the namespace and returns its output; it has to succeed."""
        done = subprocess.run(self.command(*command.split()), stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              check=False)
        if done.returncode != 0:
            raise AssertionError(f"{self.name}: {command}: status {done.returncode}\n{done.stdout}{done.stderr}")
        return done.stdout

    def index(self, interface):
        with self.entered():
            return socket.if_nametoindex(interface)

    def set(self, setting, value):
        """Writes one kernel setting, as net/ipv4/ip_forward."""
        with self.entered(), open(f"/proc/sys/{setting}", "w", encoding="ascii") as file:
            file.write(str(value))

    def close(self):
        if self.fd >= 0:
            os.close(self.fd)
            self.fd = -1
