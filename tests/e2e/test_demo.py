# SPDX-License-Identifier: MIT
"""The demonstration, as a person runs it, and what it leaves behind: nothing."""

import os
import pathlib
import signal
import subprocess
import sys
import tempfile

import pytest
from testbed import wait_until
from testbed.daemon import build_directory

ROOT = pathlib.Path(__file__).resolve().parents[2]
DEMO = [sys.executable, "-B", str(ROOT / "tools" / "dev" / "demo.py")]


@pytest.fixture
def demo():
    """A running demonstration, in a session and with a directory for temporary files of its own."""
    with tempfile.TemporaryDirectory(prefix="demo-") as directory:
        environment = {**os.environ, "TMPDIR": directory, "MDNSPROXY_BUILD_DIR": str(build_directory())}
        shared_memory = set(os.listdir("/dev/shm"))
        process = subprocess.Popen(DEMO, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   text=True, start_new_session=True, env=environment)
        process.directory = directory
        yield process
        process.kill()
        process.communicate()
        wait_until(lambda: not processes_of(directory), 5, lambda: f"no process left: {processes_of(directory)}")
        assert {name for name in set(os.listdir("/dev/shm")) - shared_memory if "mdnsproxy" in name} == set()


def processes_of(directory):
    """The command lines of all processes that name the directory in their environment or arguments."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        try:
            if entry.name.isdigit() and directory.encode() in (entry / "environ").read_bytes():
                found.append((entry / "cmdline").read_bytes())
        except OSError:
            pass
    return found


def test_it_shows_a_printer_before_during_and_after(demo):
    output, errors = demo.communicate(timeout=40)
    assert (demo.returncode, errors) == (0, "")
    told = [line.strip() for line in output.splitlines()]
    for line in ("Link B has asked for printers for two seconds and sees: nothing.", "name       Office Printer",
                 "addresses  10.1.0.2, fd00:1::2", "port       631",
                 'connect    office-printer.local. -> 10.1.0.2 port 631 says: "hello from the printer on link A"',
                 "SIGTERM ended the daemon with status 10. Nothing of this is left on the machine."):
        assert line in told, output
    assert max(map(len, output.splitlines())) <= 110
    assert os.listdir(demo.directory) == []


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGKILL], ids=lambda number: number.name)
def test_it_leaves_no_process_when_it_is_interrupted(demo, number):
    heard = ""
    while "The gateway runs mdnsproxy" not in heard:
        line = demo.stdout.readline()
        assert line, demo.stderr.read()
        heard += line
    wait_until(lambda: len(processes_of(demo.directory)) > 2, 5, "the daemon's processes")
    demo.send_signal(number)
    demo.communicate(timeout=10)
    assert demo.returncode != 0
    wait_until(lambda: not processes_of(demo.directory), 5, lambda: f"no process left: {processes_of(demo.directory)}")
    if number != signal.SIGKILL:
        assert os.listdir(demo.directory) == []


def test_without_root_it_says_so_in_one_line():
    done = subprocess.run(["setpriv", "--reuid=65534", "--clear-groups", "--regid=65534", "bash", "-s"], check=False,
                          text=True, input=(ROOT / "demo").read_text(encoding="utf-8").replace('cd "$(dirname "$0")"',
                                                                                               "cd /"),
                          capture_output=True)
    assert done.returncode == 1
    assert done.stdout == "" and len(done.stderr.splitlines()) == 1 and "root" in done.stderr
