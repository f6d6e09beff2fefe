# SPDX-License-Identifier: MIT
"""mdnsproxy in a box, with the files that it reads and leaves."""

import os
import pathlib
import signal

from .box import Box
from .closing import Closing
from .waiting import wait_until

STATUS_FILE = "/tmp/mdnsproxy.out"
PID_FILE = "/var/run/mdnsproxy.pid"
SERVICES_FILE = "/etc/mdnsservice-list.xml"
RULES_FILE = "/tmp/mdnsproxyrule-list.xml"
SETTINGS_FILE = "/etc/mdnsproxy.conf"

_SOURCE = pathlib.Path(__file__).resolve().parents[3]


def build_directory():
    return pathlib.Path(os.environ.get("MDNSPROXY_BUILD_DIR", _SOURCE / "build")).resolve()


def mdnsproxy_path():
    return build_directory() / "mdnsproxy"


# For a build with sanitizers. What the daemon holds at its end is not taken apart, by design: no leak.
_SANITIZER_REPORTS = "sanitizer"
_SANITIZERS = {"ASAN_OPTIONS": f"detect_leaks=0:log_path=/tmp/{_SANITIZER_REPORTS}",
               "UBSAN_OPTIONS": f"print_stacktrace=1:log_path=/tmp/{_SANITIZER_REPORTS}"}


def services_list(**services):
    """The text of a services list: services_list(Printing=["_ipp._tcp"])."""
    return "".join(f'<mdnsservice name="{name}">\n' + "".join(f'  <service type="{kind}"/>\n'
                                                              for kind in kinds) + "</mdnsservice>\n"
                   for name, kinds in services.items())


def rule(service, if_from, if_to, bidirectional=False, literal=True):
    """One rule; `literal`: `service` is a DNS-SD type and no name of the services list."""
    return (f'<mdnsproxyrule mdnsservice="{service}" rule_type="{int(literal)}" if_from="{if_from}" if_to="{if_to}" '
            f'bidirectional="{"yes" if bidirectional else "no"}"/>\n')


def rules_list(*rules):
    """The text of a rules list; without a rule it still holds something, since an empty file is an error."""
    return "".join(rules) or "<!-- no rule -->\n"


class Daemon(Closing):
    """One run (or several, one after another) of mdnsproxy on a gateway.

    `library` takes the place of the DNS-SD library that stands beside the program; `environment` is added to the
    program's. With `state_file` the directory is there in which the daemon keeps one.
    """

    def __init__(self, namespace, rules="", services="<!-- no service has a name here -->\n", settings=None,
                 library=None, environment=None, wrapper=(), name="mdnsproxy", state_file=False):
        self.box = Box(namespace, name)
        self.box.install(mdnsproxy_path(), library or build_directory() / "libdns_sd.so.1")
        self.environment = {**_SANITIZERS, **(environment or {})}
        self.wrapper = list(wrapper)  # a program and its options that run mdnsproxy, such as valgrind
        self.started_process = None
        if state_file:
            self.box.path("/run/mdnsproxy").mkdir()
        for file, content in ((SERVICES_FILE, services), (RULES_FILE, rules), (SETTINGS_FILE, settings)):
            if content is not None:
                self.box.write(file, content)

    def start(self, *options, by_init=False, program="/mnt/program/mdnsproxy"):
        """Starts the program and returns at once."""
        self.started_process = self.box.start(*self.wrapper, program, *options, environment=self.environment,
                                              by_init=by_init)
        return self

    def start_and_wait(self, *options, within=20, **how):
        """Starts the program and waits until its status file says that it is running. What a former run has left there
        is removed before: it would say so at once."""
        status_file = self.box.path(STATUS_FILE)
        if status_file.is_file() and not status_file.is_symlink():
            status_file.unlink()
        self.start(*options, **how)
        self.wait_until_running(within)
        return self

    def wait_until_running(self, within=20):
        wait_until(self._is_running_or_ended, within, lambda: f"running; the status file holds {self.status_file!r}")
        assert self.status_code == 0, f"the daemon ended at once; the status file holds {self.status_file!r}"

    def _is_running_or_ended(self):
        return self.status_code == 0 or self.daemon_status is not None

    # --- what it left

    @property
    def status_file(self):
        return self.box.read(STATUS_FILE)

    @property
    def status_code(self):
        """The status file's first line as a number; None while there is none."""
        lines = (self.status_file or "").split("\n")
        return int(lines[0]) if len(lines) > 1 and lines[0].lstrip("-").isdigit() else None

    @property
    def pid_file(self):
        return self.box.read(PID_FILE)

    @property
    def pid(self):
        """The daemon's process id in its box, from the PID file."""
        return int(wait_until(lambda: self.pid_file, 5, "a PID file"))

    @property
    def debug_stream(self):
        return self.box.output()

    # --- its processes

    @property
    def daemon_status(self):
        """The wait status of the process that went on after the fork, None while it runs. Only after a start in which
        it forks: the process whose parent is gone is the daemon."""
        for pid, status in list(self.box.ended.items()):
            if pid not in self.box.started:
                return status
        return None

    def wait_for_exit(self, within=10):
        """The daemon's exit status (eight bits); fails when it was ended by a signal."""
        wait_until(lambda: self.daemon_status is not None, within,
                   lambda: f"the daemon's end; status file {self.status_file!r}")
        assert os.WIFEXITED(self.daemon_status), f"ended by signal {os.WTERMSIG(self.daemon_status)}"
        return os.WEXITSTATUS(self.daemon_status)

    def send(self, number):
        self.box.tell(kill=self.pid, signal=int(number))

    def stop(self, number=signal.SIGTERM, within=10):
        """Sends the signal and waits; returns the exit status."""
        self.send(number)
        return self.wait_for_exit(within)

    def sanitizer_reports(self):
        return "".join(file.read_text() for file in self.box.path("/tmp").glob(f"{_SANITIZER_REPORTS}.*"))

    def logs(self):
        return f"--- {self.box.name}: status file\n{self.status_file}\n{self.box.logs()}\n{self.sanitizer_reports()}"

    def close(self):
        self.box.kill_all()
        reports = self.sanitizer_reports()
        self.box.close()
        assert reports == "", reports
