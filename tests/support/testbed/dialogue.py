# SPDX-License-Identifier: MIT
"""Programs on the far side of a pipe. Each ends with the test process, however that ends, since its input does."""

import os
import queue
import subprocess
import threading

from .closing import Closing


def collect(stream, sink):
    """Hands each line of `stream` to `sink`, until the stream ends, in a thread, which is returned."""
    def read():
        for line in stream:
            sink(line.rstrip("\n"))
    thread = threading.Thread(target=read, daemon=True)
    thread.start()
    return thread


class Program(subprocess.Popen):
    """A program whose output is collected, line by line, in `lines`."""

    def __init__(self, command):
        super().__init__(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.lines = []
        collect(self.stdout, self.lines.append)

    def tell(self, line):
        self.stdin.write(line + "\n")
        self.stdin.flush()


class Dialogue(Closing):
    """A program that takes lines and answers with lines. It begins with the line "ready"."""

    def __init__(self, name, command):
        self.name = name
        self._process = subprocess.Popen(  # pylint: disable=consider-using-with
            command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self._lines = queue.Queue()
        collect(self._process.stdout, self._lines.put)
        assert self.answer(10) == "ready"

    @property
    def pid(self):
        return self._process.pid

    def yield_processor(self):
        """Many hosts on the few cores of one machine must not take the time of those that are measured."""
        os.setpriority(os.PRIO_PROCESS, self.pid, 15)

    def tell(self, *words):
        self._process.stdin.write(" ".join(map(str, words)) + "\n")
        self._process.stdin.flush()

    def answer(self, within):
        try:
            return self._lines.get(timeout=within)
        except queue.Empty:
            raise AssertionError(f"{self.name} has not answered within {within} s") from None

    def ask(self, *words, within):
        """The answer to these words."""
        self.tell(*words)
        return self.answer(within)

    def close(self):
        self._process.stdin.close()
        try:
            self._process.wait(20)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._process.stdout.close()
