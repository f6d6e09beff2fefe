# SPDX-License-Identifier: MIT
"""What the kernel knows of a running process, and what of the daemon's can be read from outside besides."""

import os
import pathlib
import re
import struct
import subprocess

_COUNTER = "(anonymous namespace)::gBlockCount"


class Figures:
    """Of one process, by its id as this machine counts. Memory is in bytes."""

    def __init__(self, pid):
        self.pid = pid
        self.directory = pathlib.Path("/proc") / str(pid)

    @property
    def cpu(self):
        """Seconds of processor time so far, of all its threads."""
        try:
            return sum(int((task / "schedstat").read_text().split()[0])
                       for task in (self.directory / "task").iterdir()) / 1e9
        except (FileNotFoundError, IndexError):
            fields = (self.directory / "stat").read_text().rsplit(")", 1)[1].split()
            return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def _status(self, word):
        for line in (self.directory / "status").read_text().splitlines():
            if line.startswith(word + ":"):
                return int(line.split()[1]) * 1024
        return 0

    @property
    def memory(self):
        """What is resident now."""
        return self._status("VmRSS")

    @property
    def peak_memory(self):
        """The most that was resident so far, or since forget_peak."""
        return self._status("VmHWM")

    def forget_peak(self):
        (self.directory / "clear_refs").write_text("5")  # proc(5): resets the peak to what is resident now

    @property
    def descriptors(self):
        return len(list((self.directory / "fd").iterdir()))


class DaemonFigures(Figures):
    """Of a running mdnsproxy that was built at `program`: the live blocks of its tracking allocator, too.

    The allocator's counter is a variable of the program: its place is in the program's symbol table, its value in the
    process's memory. So the program needs neither a signal nor a port for it."""

    def __init__(self, pid, program):
        super().__init__(pid)
        self.symbols = subprocess.run(["nm", "-C", str(program)], capture_output=True, text=True, check=True).stdout
        self.counter = self._address_of_counter(program) + self._base_address()

    @property
    def is_sanitized(self):
        """A sanitizer keeps freed memory for a while: what is resident then tells nothing."""
        return "__asan_init" in self.symbols

    def _address_of_counter(self, program):
        address = next((line.split()[0] for line in self.symbols.splitlines() if line.endswith(_COUNTER)), None)
        assert address, f"{program} has no symbol table"
        return int(address, 16)

    def _base_address(self):
        for line in (self.directory / "maps").read_text().splitlines():
            match = re.match(r"([0-9a-f]+)-\S+ \S+ 00000000 .*/mdnsproxy$", line)
            if match:
                return int(match[1], 16)
        raise AssertionError("the program is not mapped")

    @property
    def blocks(self):
        with open(self.directory / "mem", "rb", buffering=0) as memory:
            memory.seek(self.counter)
            return struct.unpack("@N", memory.read(8))[0]

    def __str__(self):
        return f"{self.memory >> 10} KiB resident, {self.descriptors} descriptors, {self.blocks} blocks"


def descendant(pid, name):
    """The process id of the process called `name` below `pid`; None: there is none."""
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        for child in map(int, (task / "children").read_text().split()):
            if pathlib.Path(f"/proc/{child}/comm").read_text().strip() == name:
                return child
            found = descendant(child, name)
            if found:
                return found
    return None
