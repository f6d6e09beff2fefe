# SPDX-License-Identifier: MIT
"""The PID file, and what an existing one means.

    [ mdnsproxy over a scripted libdns_sd.so.1, in a process table of its own ]
"""

import signal

import pytest
from testbed.daemon import PID_FILE

VERBOSE = "[mdnsproxy]\nlog_level = enable\n"
FOUND = ("WARNING 301802: PID lock file /var/run/mdnsproxy.pid exists -- reading for PID and then will try to issue "
         "kill signal....")
NOT_READ = "WARNING 301804: Found existing PID file /var/run/mdnsproxy.pid, but could not read PID from it, ignoring."


@pytest.fixture
def daemon(scene):
    return scene.scripted_daemon(settings=VERBOSE)


def test_it_holds_the_daemons_process_id_and_only_the_owner_may_touch_it(daemon):
    daemon.start_and_wait()
    pid = int(daemon.pid_file)
    assert daemon.pid_file == f"{pid}\n"
    assert daemon.box.path(PID_FILE).stat().st_mode & 0o7777 == 0o600
    assert daemon.box.run("cat", f"/proc/{pid}/comm") == "mdnsproxy\n"
    assert pid != daemon.started_process.pid
    assert daemon.stop() == 10
    assert daemon.pid_file is None


def test_an_earlier_instance_is_killed_and_replaced(daemon):
    earlier = daemon.box.start("sleep", "1000", by_init=True)
    daemon.box.write(PID_FILE, f"{earlier.pid}\n")
    daemon.start_and_wait()
    earlier.wait()
    assert earlier.end_signal == signal.SIGKILL
    assert daemon.box.logged(FOUND, 4)
    assert daemon.box.logged(f"WARNING 301803: Found existing PID file {PID_FILE} with PID - {earlier.pid}, calling "
                             f"kill({earlier.pid}).",
                             4)
    assert daemon.pid_file == f"{daemon.pid}\n" and daemon.pid != earlier.pid


@pytest.mark.parametrize("content", ["", "\n", "mdnsproxy\n", "99999999999999999999\n"])
def test_a_file_without_a_number_kills_nothing(daemon, content):
    bystander = daemon.box.start("sleep", "1000", by_init=True)
    daemon.box.write(PID_FILE, content)
    daemon.start_and_wait()
    assert daemon.box.logged(FOUND, 4) and daemon.box.logged(NOT_READ, 4)
    assert not daemon.box.logged("301803")
    assert daemon.pid_file == f"{daemon.pid}\n"
    assert bystander.status is None


def test_a_number_of_no_process_is_no_hindrance(daemon):
    daemon.box.write(PID_FILE, "4000000\n")
    daemon.start_and_wait()
    assert daemon.box.logged("301803") and daemon.pid_file == f"{daemon.pid}\n"


def test_a_file_that_cannot_be_read(daemon):
    daemon.box.path(PID_FILE).symlink_to("/nowhere/at/all")
    daemon.start()
    assert daemon.wait_for_exit() == 30
    assert daemon.status_file == ("30\nERROR 301801: PID lock file (list) found, but could not fopen for reading, "
                                  "exiting.\n")
    assert daemon.box.logged(f"ERROR 301801: PID lock file {PID_FILE} found, but could not fopen for reading, exiting.",
                             4)


def test_a_directory_in_its_place(daemon):
    daemon.box.path(PID_FILE).mkdir()
    daemon.start()
    assert daemon.wait_for_exit() == 30
    assert daemon.status_file == "30\nERROR 301901: PID lock file could not be open for writing, exiting.\n"
    assert daemon.box.logged(f"ERROR 301903: Could not unlink (delete) PID lock file {PID_FILE}, (did you run sudo "
                             f"or as root?), exiting",
                             2)


def test_no_room_for_it(daemon):
    daemon.box.path(PID_FILE).symlink_to("/dev/full")
    daemon.start()
    assert daemon.wait_for_exit() == 30
    assert daemon.status_file == "30\nERROR: 301909: Could not write PID: (list) to file (list), exiting\n"
    assert daemon.box.logged("ERROR: 301909: Could not write PID: ", 4)


def test_a_file_that_cannot_be_synced_is_only_a_warning(daemon):
    daemon.box.path(PID_FILE).symlink_to("/dev/null")
    daemon.start_and_wait()
    assert daemon.box.logged(f"WARNING 301910: Could not fsync PID file: {PID_FILE}, ignoring error and continuing "
                             f"execution.", 4)


def test_a_file_that_is_gone_at_the_end_is_reported_at_the_critical_level_and_hinders_nothing(daemon):
    daemon.box.write("/etc/mdnsproxy.conf", "")  # also without the wide mask
    daemon.start_and_wait()
    pid = daemon.pid
    daemon.box.path(PID_FILE).unlink()
    daemon.box.tell(kill=pid, signal=int(signal.SIGTERM))
    assert daemon.wait_for_exit() == 10
    assert daemon.box.logged(f"ERROR 301903: Could not unlink (delete) PID lock file {PID_FILE}, (did you run sudo "
                             f"or as root?), exiting",
                             2)
    assert daemon.status_code == 10
