# SPDX-License-Identifier: MIT
"""What a running daemon holds, read from outside: resident memory, open descriptors, and the tracking allocator's live
blocks.

The allocator's counter is a variable of the program: its place is in the program's symbol table, its value in the
process's memory. So the program needs neither a signal nor a port for it."""

import pathlib
import re
import struct
import subprocess

_COUNTER = "(anonymous namespace)::gBlockCount"


def processes(name):
    """Process ids, as this machine counts, of running programs of that name."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                if (entry / "comm").read_text().strip() == name:
                    found.append(int(entry.name))
            except OSError:
                pass
    return found


class Figures:
    """Of one process, the daemon of this box, that was built at `program`."""

    def __init__(self, box, program):
        self.pid = next(pid for pid in processes("mdnsproxy") if _box_pid(pid) != 1 and _is_in(pid, box))
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
        for line in pathlib.Path(f"/proc/{self.pid}/maps").read_text().splitlines():
            match = re.match(r"([0-9a-f]+)-\S+ \S+ 00000000 .*/mdnsproxy$", line)
            if match:
                return int(match[1], 16)
        raise AssertionError("the program is not mapped")

    @property
    def blocks(self):
        with open(f"/proc/{self.pid}/mem", "rb", buffering=0) as memory:
            memory.seek(self.counter)
            return struct.unpack("@N", memory.read(8))[0]

    @property
    def resident(self):
        """KiB"""
        return int(re.search(r"VmRSS:\s+(\d+)", pathlib.Path(f"/proc/{self.pid}/status").read_text())[1])

    @property
    def descriptors(self):
        return len(list(pathlib.Path(f"/proc/{self.pid}/fd").iterdir()))

    def __str__(self):
        return f"{self.resident} KiB resident, {self.descriptors} descriptors, {self.blocks} blocks"


def _box_pid(pid):
    """The process's id as its box counts."""
    return int(re.search(r"NSpid:.*\s(\d+)$", pathlib.Path(f"/proc/{pid}/status").read_text(), re.MULTILINE)[1])


def _is_in(pid, box):
    """Whether the process sees the box's files: its /run is a folder of the box."""
    return box.root.name in pathlib.Path(f"/proc/{pid}/mountinfo").read_text()
