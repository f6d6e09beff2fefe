# SPDX-License-Identifier: MIT
"""What the kernel knows of one process: processor time and memory."""

import os
import pathlib


class Process:
    def __init__(self, pid):
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
        """Resident bytes now."""
        return self._status("VmRSS")

    @property
    def peak_memory(self):
        """The most resident bytes so far, or since forget_peak."""
        return self._status("VmHWM")

    def forget_peak(self):
        (self.directory / "clear_refs").write_text("5")  # proc(5): resets the peak to what is resident now


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
