# SPDX-License-Identifier: MIT
"""A box: one program's private world on the gateway.

It has an /etc, a /tmp, a /run and a /dev of its own, of which the test sees every file
(`box.path("/tmp/mdnsproxy.out")`), a process table in which process 1 is ours (box_init.py), and a /dev/log at which
the test listens. When the box ends, or the test process does, every process in it is killed.
"""

import json
import os
import pathlib
import re
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time

from .closing import Closing
from .figures import descendant
from .waiting import wait_until

_INIT = pathlib.Path(__file__).with_name("box_init.py")
# What programs look up in /etc; everything else of this machine's stays invisible.
_ETC_FILES = ("ld.so.cache", "ld.so.conf", "localtime", "nsswitch.conf", "passwd", "group", "protocols", "services",
              "hosts")


class SyslogLine:
    """One message as it came to /dev/log."""

    def __init__(self, datagram):
        match = re.match(rb"<(\d+)>(?:\w{3} [ \d]\d \d\d:\d\d:\d\d )?([^:\[]*)(?:\[(\d+)\])?: ?(.*)", datagram,
                         re.DOTALL)
        number = int(match[1]) if match else 0
        self.time = time.monotonic()
        self.priority = number & 7
        self.facility = number & ~7
        self.identity = match[2].decode() if match else ""
        self.pid = int(match[3]) if match and match[3] else None
        self.text = (match[4] if match else datagram).decode("utf-8", "replace").rstrip("\0")

    def __repr__(self):
        return f"<{self.priority}> {self.identity}: {self.text}"


class Process:
    """A program started in a box. `status` is what the kernel reports of its end (as os.wait gives it), None before."""

    def __init__(self, box, pid):
        self.box = box
        self.pid = pid  # as the box counts

    @property
    def status(self):
        return self.box.ended.get(self.pid)

    @property
    def exit_status(self):
        """0..255, or None while it runs or when a signal ended it."""
        return os.WEXITSTATUS(self.status) if self.status is not None and os.WIFEXITED(self.status) else None

    @property
    def end_signal(self):
        """The signal that ended it, or None."""
        return os.WTERMSIG(self.status) if self.status is not None and os.WIFSIGNALED(self.status) else None

    def kill(self, number=signal.SIGKILL):
        self.box.tell(kill=self.pid, signal=int(number))

    def wait(self, within=5):
        wait_until(lambda: self.status is not None, within, f"the end of process {self.pid} of the box")
        return self.status


class Box(Closing):
    def __init__(self, namespace, name="box"):
        self.name = name
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="mdnsproxy-"))
        self._messages = []
        self._closed = False
        self._log_lock = threading.Lock()
        self.ended = {}    # process id -> wait status
        self.started = []  # process ids in the order of the start commands
        for directory in ("etc", "tmp", "run", "dev", "program", "log"):
            (self.root / directory).mkdir()
        for file in _ETC_FILES:
            source = pathlib.Path("/etc") / file
            if source.exists():
                shutil.copy(source, self.root / "etc" / file)
        self._log_socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_CLOEXEC)
        self._log_socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 22)
        self._log_socket.bind(str(self.root / "dev" / "log"))
        self._stop_listening, self._stop = socket.socketpair()
        self._init_log = open(self.root / "log" / "init", "wb")  # pylint: disable=consider-using-with
        self._init = subprocess.Popen(  # pylint: disable=consider-using-with
            namespace.command("unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc",
                              "/usr/bin/python3", "-I", "-S", str(_INIT), str(self.root)),
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self._init_log, text=True)
        self._threads = [threading.Thread(target=self._listen, daemon=True),
                         threading.Thread(target=self._follow, daemon=True)]
        for thread in self._threads:
            thread.start()

    # --- files

    def path(self, inside):
        """Where the test finds the file that the box knows as `inside`."""
        inside = inside.replace("/var/run/", "/run/")
        return self.root / inside.lstrip("/")

    def write(self, inside, content):
        data = content.encode() if isinstance(content, str) else content
        self.path(inside).write_bytes(data)

    def read(self, inside):
        """The file's bytes as text, or None when there is no such file."""
        try:
            return self.path(inside).read_bytes().decode("utf-8", "replace")
        except FileNotFoundError:
            return None

    def install(self, *files):
        """Shows these files of this machine to the box as /mnt/program/<name>."""
        self.tell(install=[str(file) for file in files])

    # --- processes

    def start(self, *arguments, environment=None, output="output", by_init=False):
        """Starts a program. Its standard output and error go to the file log/<output>. Normally its parent is a process
        that waits for it, as a shell would; `by_init` makes process 1 its parent."""
        number = len(self.started)
        self.tell(start=[str(argument) for argument in arguments], environment=environment or {},
                  output=str(self.root / "log" / output), by_init=by_init)
        wait_until(lambda: len(self.started) > number or self._init.poll() is not None, 10,
                   "the start of a program in the box")
        assert len(self.started) > number, f"the box is broken:\n{self.output('init')}"
        return Process(self, self.started[number])

    def find(self, name):
        """The id, as this machine counts, of the process called `name` that runs in the box or is about to."""
        return wait_until(lambda: descendant(self._init.pid, name), 10, f"the process {name}")

    def run(self, *arguments):
        """Runs a program in the box to its end and returns what it wrote; it has to succeed."""
        name = f"run-{len(self.started)}"
        process = self.start(*arguments, output=name)
        process.wait()
        assert process.exit_status == 0, f"{arguments}: {process.exit_status}\n{self.output(name)}"
        return self.output(name)

    def output(self, name="output"):
        """What has been written so far; nothing while the program is only being started."""
        file = self.root / "log" / name
        return file.read_bytes().decode("utf-8", "replace") if file.exists() else ""

    def tell(self, **command):
        self._init.stdin.write(json.dumps(command) + "\n")
        self._init.stdin.flush()

    def _follow(self):
        for line in self._init.stdout:
            report = json.loads(line)
            if "started" in report:
                self.started.append(report["started"])
            else:
                self.ended[report["ended"]] = report["status"]

    # --- syslog

    def _listen(self):
        """Keeps the short queue of the socket empty, or the daemon would wait at it."""
        while True:
            select.select([self._log_socket, self._stop_listening], [], [])
            if not self._take_messages():
                return

    def _take_messages(self):
        """Reads what has been sent so far; false once the box is closed."""
        with self._log_lock:
            while not self._closed:
                try:
                    self._messages.append(SyslogLine(self._log_socket.recv(65536, socket.MSG_DONTWAIT)))
                except BlockingIOError:
                    return True
        return False

    @property
    def syslog(self):
        """Every message that was sent until now."""
        self._take_messages()
        return list(self._messages)

    def logged(self, text, priority=None):
        """The syslog lines so far that contain `text` (and have the priority)."""
        return [line for line in self.syslog if text in line.text and priority in (None, line.priority)]

    # --- the end

    def kill_all(self):
        """Ends every process in the box and waits until none is left."""
        if self._init.poll() is None:
            self._init.stdin.close()
            try:
                self._init.wait(10)
            except subprocess.TimeoutExpired:
                self._init.kill()
                self._init.wait()

    def logs(self):
        """Everything that was said in the box, for a person who looks for the reason of a failure."""
        parts = [f"--- {self.name}: syslog\n" + "\n".join(map(repr, self.syslog[-400:]))]
        for file in sorted((self.root / "log").iterdir()):
            text = file.read_bytes().decode("utf-8", "replace")
            if text.strip():
                parts.append(f"--- {self.name}: {file.name}\n{text[-20000:]}")
        return "\n".join(parts)

    def close(self):
        self.kill_all()
        self._closed = True
        self._stop.send(b".")
        for thread in self._threads:
            thread.join(5)
        for opened in (self._log_socket, self._stop, self._stop_listening):
            opened.close()
        self._init.stdout.close()
        self._init_log.close()
        shutil.rmtree(self.root, ignore_errors=True)
