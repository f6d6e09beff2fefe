# SPDX-License-Identifier: MIT
"""The order in which the daemon starts, as its traces tell it, and what it sets up before the first of them.

    [ mdnsproxy over a scripted libdns_sd.so.1 ]----- /dev/log of its own
"""

import re
import signal

import pytest
from testbed import rule, wait_until

VERBOSE = "[mdnsproxy]\nlog_level = enable\n"
GONE = ("ERROR 301903: Could not unlink (delete) PID lock file /var/run/mdnsproxy.pid, (did you run sudo or as "
        "root?), exiting")

# Each behind the one before. The messages of the process that forks stand between them somewhere.
START_UP = [
    "main_init...\n",
    "daemonize(): aRundir = /tmp, aPIDfile = /var/run/mdnsproxy.pid ...\n",
    "daemonize(): checking if we're already a child process  ...\n",
    "daemonize(): Route I/O connections: gDBG = 1 ...\n",
    "create_PID_file(): START: attempting to create aPIDfilename = /var/run/mdnsproxy.pid ...\n",
    "vupdate_status_file(): aNewMYSTATUS = 1 ...\n",
    "main_init(): testing semaphores...  \n",
    "main_init(): semaphore testing complete.\n",
    "main_init(): FINISHED.\n\n\n",
    "mdnsproxy (version 1.0.0) started in verbose debug logging mode...\n",
    "\nFindInterfaces(): START: Finding interfaces and names...\n\n",
    "InitFromConfigFiles(): START: aConfigServicesFilename = /etc/mdnsservice-list.xml, aConfigRulesFilename = "
    "/tmp/mdnsproxyrule-list.xml",
    "\t ********************* DONE WITH RULES ******************\n\n\n",
    "vupdate_status_file(): aNewMYSTATUS = 0 ...\n",
    "HandleEvents(): START: else (NOT _DNS_SD_LIBDISPATCH)...\n\n",
    "HandleEvents(): LOOP: while (!stopNow): loop #1  (max_loops = 0)...\n\n",
]


def positions(stream):
    """Where each message of START_UP stands behind the one before; it has to be there."""
    at = 0
    for message in START_UP:
        found = stream.find(message, at)
        assert found != -1, f"lacks, behind what precedes it: {message!r}"
        at = found + len(message)
        yield found


def test_debug_mode_begins_by_saying_so(scene):
    daemon = scene.scripted_daemon().start_and_wait("-d")
    assert re.match(r"mdnsproxy\.c:\d+:\n\n\t\tmain\(\): \*\*\* Got D -- using debug level gLOG_DBG "
                    r"\*\*\*\n\n\nmdnsproxy\.c:\d+:main_init",
                    daemon.debug_stream), "nothing before it, nor between it and what follows"


def test_it_starts_in_this_order(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b")).start_and_wait("-d")
    wait_until(lambda: START_UP[-1] in daemon.debug_stream, 2, "the event loop's first pass")
    stream = daemon.debug_stream
    assert len(list(positions(stream))) == len(START_UP)
    assert [stream.count(message) for message in START_UP] == [1] * len(START_UP)


def test_traces_go_to_standard_output_and_what_syslog_copies_to_standard_error(scene):
    twice = rule("_ipp._tcp", "a", "b")
    daemon = scene.scripted_daemon(twice, twice, settings=VERBOSE,
                                   wrapper=("sh", "-c", 'exec "$@" 2>/tmp/errors', "sh"))
    daemon.start_and_wait("-d")
    errors = daemon.box.read("/tmp/errors")
    assert re.search(r"^mdnsproxy\[\d+\]: WARNING 111727: ", errors, re.MULTILINE) and "mdnsproxy.c:" not in errors
    assert "mdnsproxy.c:" in daemon.debug_stream and "WARNING 111727" not in daemon.debug_stream


def test_the_option_is_read_before_debug_mode_and_traced_to_syslog_alone(scene):
    """The mask is narrow at that moment, whatever the settings say, so that the trace is never seen."""
    daemon = scene.scripted_daemon(settings=VERBOSE).start_and_wait("-d")
    assert "getfirstoption" not in daemon.debug_stream
    assert daemon.box.logged("getfirstoption") == []


@pytest.mark.parametrize("options, on_the_console", [((), False), (("-d",), True)], ids=["normal mode", "debug mode"])
def test_the_console_hears_in_debug_mode_what_syslog_does_not_take(scene, options, on_the_console):
    daemon = scene.scripted_daemon()
    daemon.box.write("/dev/console", "")
    daemon.box.path("/dev/log").unlink()
    daemon.start_and_wait(*options)
    pid = daemon.pid
    daemon.box.path("/run/mdnsproxy.pid").unlink()
    daemon.box.tell(kill=pid, signal=int(signal.SIGTERM))
    assert daemon.wait_for_exit() == 10
    assert (GONE in daemon.box.read("/dev/console")) == on_the_console


@pytest.mark.parametrize("options", [(), ("-d",)], ids=["normal mode", "debug mode"])
def test_syslog_is_opened_before_anything_is_to_be_said(scene, options):
    daemon = scene.scripted_daemon().start_and_wait(*options)
    assert daemon.box.syslog == []
    links = daemon.box.run("sh", "-c", f"readlink /proc/{daemon.pid}/fd/*").split()
    assert len([link for link in links if link.startswith("socket:")]) == 1, (
        "the scripted library has pipes, no sockets")


def test_a_crash_is_reported_under_the_programs_name_and_leaves_the_files_as_they_are(scene):
    daemon = scene.scripted_daemon()
    daemon.box.run("sh", "-c", "cp /mnt/program/* /tmp && mv /tmp/mdnsproxy /tmp/gateway")
    daemon.start_and_wait(program="/tmp/gateway")
    pid, before = daemon.pid, daemon.status_file
    daemon.send(signal.SIGSEGV)
    wait_until(lambda: daemon.daemon_status is not None, 5, "the end")
    assert daemon.daemon_status & 0x7f == signal.SIGSEGV
    report = daemon.box.logged("gateway (version 1.0.0): fatal signal 11 (SIGSEGV)", 2)[0].text
    assert report.endswith("(SIGSEGV)"), "no address: the signal was sent and is no fault"
    assert daemon.status_file == before and daemon.pid_file == f"{pid}\n"
