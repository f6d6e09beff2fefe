# SPDX-License-Identifier: MIT
"""Started by init: the program stays in the foreground, as it was started.

    process 1 ---- [ mdnsproxy over a scripted libdns_sd.so.1 ]
"""

import re
import signal

import pytest
from testbed import wait_until


@pytest.fixture
def daemon(scene):
    return scene.scripted_daemon()


def start(daemon, *options):
    daemon.start(*options, by_init=True)
    wait_until(lambda: daemon.status_code == 0, 10, lambda: f"running; status file {daemon.status_file!r}")
    return daemon.started_process


def test_it_does_not_fork_and_writes_no_pid_file(daemon):
    process = start(daemon)
    assert daemon.box.run("cat", f"/proc/{process.pid}/comm") == "mdnsproxy\n"
    assert process.status is None and daemon.pid_file is None
    assert daemon.status_file.startswith("0\nFinished startup")


def test_it_keeps_streams_directory_and_signals(daemon):
    process = start(daemon)
    links = [daemon.box.run("readlink", f"/proc/{process.pid}/{link}").strip() for link in ("cwd", "fd/0")]
    assert links == ["/", "/dev/null"]
    assert daemon.box.run("readlink", f"/proc/{process.pid}/fd/1").strip().endswith("/output")
    status = dict(re.findall(r"^(\w+):\t(.*)$", daemon.box.run("cat", f"/proc/{process.pid}/status"), re.MULTILINE))
    handled = int(status["SigCgt"], 16)
    assert not any(handled & 1 << number - 1
                   for number in (signal.SIGHUP, signal.SIGTERM, signal.SIGUSR1, signal.SIGIO))
    assert int(status["SigBlk"], 16) == 0


ENDING = [signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM, signal.SIGUSR1, signal.SIGUSR2, signal.SIGIO]


@pytest.mark.parametrize("number", ENDING, ids=lambda number: number.name)
def test_a_signal_has_its_default_action(daemon, number):
    process = start(daemon)
    before = daemon.status_file
    process.kill(number)
    process.wait()
    assert process.end_signal == number
    assert daemon.status_file == before
    assert daemon.script.calls_of("DNSServiceRefDeallocate") == []


def test_a_fatal_error_still_leaves_its_status_and_misses_the_pid_file(daemon):
    daemon.script.fails("DNSServiceCreateConnection", 1, -65563)
    daemon.start(by_init=True)
    process = daemon.started_process
    process.wait()
    assert process.exit_status == 600 % 256
    assert daemon.status_code == 600
    assert daemon.box.logged("ERROR 301903: Could not unlink (delete) PID lock file /var/run/mdnsproxy.pid", 2)


def test_an_earlier_instances_pid_file_is_left_alone_until_the_end(daemon):
    earlier = daemon.box.start("sleep", "1000", by_init=True)
    daemon.box.write("/run/mdnsproxy.pid", f"{earlier.pid}\n")
    start(daemon)
    assert earlier.status is None and daemon.pid_file == f"{earlier.pid}\n"
