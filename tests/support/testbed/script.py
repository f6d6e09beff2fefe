# SPDX-License-Identifier: MIT
"""The script of a scripted DNS-SD library (tests/fakes/scripted_dns_sd.cpp): what it answers, and what it was asked."""

import os

from .daemon import build_directory
from .waiting import wait_until

NO_SUCH_RECORD = -65554
NAME_CONFLICT = -65548
UNKNOWN = -65537
ADD = 2


def scripted_library():
    return build_directory() / "tests" / "scripted" / "libdns_sd.so.1"


class Script:
    """The script of one box; made before its daemon starts."""

    def __init__(self, box):
        self._directory = box.path("/run/script")
        self._directory.mkdir()
        (self._directory / "results").touch()
        self._fifos = []
        for connection in (1, 2):
            path = self._directory / f"connection-{connection}"
            os.mkfifo(path)
            self._fifos.append(os.open(path, os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC))

    def fails(self, function, call, code):
        """`call`: a number, or "2+" for the second and all later ones."""
        with open(self._directory / "results", "a", encoding="ascii") as results:
            results.write(f"{function} {call} {code}\n")

    def says(self, *fields, connection=1):
        """Makes the library say a line (see scripted_dns_sd.cpp) as soon as the daemon listens."""
        line = "\t".join("(null)" if field is None else str(field) for field in fields) + "\n"
        os.write(self._fifos[connection - 1], line.encode())

    @property
    def calls(self):
        path = self._directory / "calls"
        return path.read_text(encoding="utf-8", errors="replace").splitlines() if path.exists() else []

    def calls_of(self, function):
        return [call for call in self.calls if call.split(" ", 1)[0] == function]

    def wait_for_call(self, function, number=1, within=5):
        """The line of that call."""
        return wait_until(lambda: self.calls_of(function)[number - 1:], within,
                          lambda: f"{function} {number}; {self.calls}")[0]

    def close(self):
        for fifo in self._fifos:
            os.close(fifo)
