# SPDX-License-Identifier: MIT
"""How a start ends when something is wrong: the exit status, of which the kernel keeps eight bits, and the status file.

    [ mdnsproxy over a scripted libdns_sd.so.1 ]----- a, b: interfaces of a gateway that nobody listens on
"""

import os
import platform
import re
import signal

import pytest
from testbed import rule, services_list, wait_until
from testbed.daemon import PID_FILE, RULES_FILE, SERVICES_FILE, STATUS_FILE

# In the status file's message a conversion never shows what the message was about: a text shows as this.
TEXT = "(list)"
NUMBER = "2147483647"

OPENAT = {"x86_64": 257}.get(platform.machine(), 56)  # 56 on the later 64-bit architectures

INTERFACE_TEXT = ("INTERFACE LOOKUP ERROR {}: Could not find interface named '" + TEXT + "' on this system, please "
                                                                                         "double-check the"
                  " accuracy of the mdnsproxy rules config file: " + TEXT + ".  Critical error, exiting.")

# name: (what is wrong, status, the message in the status file)
SERVICES_FAULTS = {
    "missing": (None, "ERROR 100130114: cannot find services config file: " + TEXT),
    "empty": ("", "ERROR 100130114: services config file stat invalid: " + TEXT),
    "service without a name": ("<mdnsservice name>\n</mdnsservice>\n",
                               f"ERROR 131155: ERROR in {TEXT}: missing name attribute in <mdnsservice> tag, exiting."),
    "type without a value": ('<mdnsservice name="Printing">\n<service type/>\n</mdnsservice>\n',
                             f'ERROR 131157: ERROR in {TEXT}: missing type= for <mdnsservice name="{TEXT}">'),
}

RULES_FAULTS = {
    "missing": (None, f"ERROR 12013011401: cannot find rules config file: {TEXT}"),
    "empty": ("", f"ERROR 12013011401: rules config file stat invalid: {TEXT}"),
    "no service": ('<rule rule_type="1" if_from="a" if_to="b" bidirectional="no" mdnsservice/>',
                   f"ERROR 12013011402: in {TEXT}: missing mdnsservice attribute in <mdnsproxyrule> tag"),
    "no rule_type": ('<rule mdnsservice="_ipp._tcp" if_from="a" if_to="b" bidirectional="no" rule_type/>',
                     f'ERROR 12013011403: in {TEXT}: missing rule_type attribute for <mdnsproxyrule '
                     f'mdnsservice="{TEXT}">'),
    "no if_from": ('<rule mdnsservice="_ipp._tcp" rule_type="1" if_to="b" bidirectional="no" if_from/>',
                   f'ERROR 12013011404: in {TEXT}: missing if_from attribute for <mdnsproxyrule mdnsservice="{TEXT}">'),
    "no if_to": ('<rule mdnsservice="_ipp._tcp" rule_type="1" if_from="a" bidirectional="no" if_to/>',
                 f'ERROR 12013011405: in {TEXT}: missing if_to attribute for <mdnsproxyrule mdnsservice="{TEXT}">'),
    "no bidirectional": ('<rule mdnsservice="_ipp._tcp" rule_type="1" if_from="a" if_to="b" bidirectional/>',
                         f'ERROR 12013011406: in {TEXT}: missing bidirectional attribute for <mdnsproxyrule '
                         f'mdnsservice="{TEXT}">'),
    "bidirectional maybe": (rule("_ipp._tcp", "a", "b").replace('"no"', '"maybe"'),
                            f'ERROR 12013011407: in {TEXT}: invalid value for bidirectional attribute for '
                            f'<mdnsproxyrule '
                            f'mdnsservice="{TEXT}"> -- value must be one of: '
                            f'{{ 1, YES, yes, TRUE, true, 0, no, NO, false, FALSE }}'
                            f', found value is: {TEXT}'),
    "unknown service": (rule("Printing", "a", "b", literal=False),
                        f'ERROR 12013011408: in {TEXT}: invalid value for mdnsservice attribute for <mdnsproxyrule '
                        f'mdnsservice="{TEXT}"> -- value does not appear in services config file {TEXT}, exiting.'),
    "rule_type 2": (rule("_ipp._tcp", "a", "b").replace('rule_type="1"', 'rule_type="2"'),
                    f'ERROR 12013011409: in {TEXT}: invalid value for rule_type for <mdnsproxyrule '
                    f'mdnsservice="{TEXT}"> -- value '
                    f'must be one of: {{ 0, 1 }} -- the incorect value found is: {TEXT}'),
}


def ends(daemon, status, message, within=10):
    """The start ends with this status, and everything that says so agrees."""
    assert daemon.wait_for_exit(within) == status % 256
    assert daemon.status_file == f"{status}\n{message}\n"
    assert daemon.pid_file is None, "the PID file is removed on the way out"
    assert daemon.box.logged(f"handle_error(): aMyStatusCode = {status} != MYSTATUS__RUNNING__OK, calling "
                             f"exit_clean()...", 3)


@pytest.mark.parametrize("fault", SERVICES_FAULTS)
def test_a_services_list_that_is(scene, fault):
    content, message = SERVICES_FAULTS[fault]
    daemon = scene.scripted_daemon(services=content)
    ends(daemon.start(), 110, message)


def test_the_same_service_twice(scene):
    twice = services_list(Printing=["_ipp._tcp"]) * 2
    daemon = scene.scripted_daemon(services=twice).start()
    assert daemon.wait_for_exit() == 110
    assert "131125" in daemon.status_file


@pytest.mark.parametrize("fault", RULES_FAULTS)
def test_a_rules_list_with(scene, fault):
    content, message = RULES_FAULTS[fault]
    daemon = scene.scripted_daemon()
    if content is None:
        daemon.box.path(RULES_FILE).unlink()
    else:
        daemon.box.write(RULES_FILE, content)
    ends(daemon.start(), 120, message)


@pytest.mark.parametrize("if_from, if_to, number", [("nosuch", "b", 111833), ("a", "nosuch", 111834)])
def test_an_unknown_interface(scene, if_from, if_to, number):
    ends(scene.scripted_daemon(rule("_ipp._tcp", if_from, if_to)).start(), 40, INTERFACE_TEXT.format(number))


@pytest.mark.parametrize("call, number", [(1, 1301181516), (2, 1301301624)])
def test_no_responder(scene, call, number):
    daemon = scene.scripted_daemon(settings="[mdnsproxy]\nlog_level = enable\n")
    daemon.script.fails("DNSServiceCreateConnection", call, -65563)
    ends(daemon.start(), 600, f"ERROR {number}: INTERNAL ERROR:  DNSServiceCreateConnection() call failed: {NUMBER}, "
                              f"CRITICAL "
         "ERROR, exiting.")
    # Whichever of the two it was: syslog shows the first call's result.
    shown = -65563 if call == 1 else 0
    assert daemon.box.logged(f"ERROR {number}: INTERNAL ERROR:  DNSServiceCreateConnection() call failed: {shown}, ", 4)
    releases = daemon.script.calls_of("DNSServiceRefDeallocate")
    assert [release.split()[2] for release in releases] == ["connection-1"][:call - 1]


def test_a_browse_that_is_refused_four_times(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b"))
    daemon.script.fails("DNSServiceBrowse", "1+", -65537)
    ends(daemon.start(), 600, f"ERROR 131813: MyDNSServiceBrowse  call failed: {NUMBER}")
    assert len(daemon.script.calls_of("DNSServiceBrowse")) == 4


def test_a_browse_that_is_refused_three_times_and_then_taken(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b"))
    for call in (1, 2, 3):
        daemon.script.fails("DNSServiceBrowse", call, -65537)
    daemon.start_and_wait()
    assert len(daemon.script.calls_of("DNSServiceBrowse")) == 4


@pytest.mark.parametrize("obstacle, text", [
    ("a directory", "ERROR 30130117011910: Could not open status file /tmp/mdnsproxy.out, exiting"),
    ("a full disk", "ERROR 30130117011911: Could not write to status file /tmp/mdnsproxy.out, exiting")])
def test_a_status_file_that_cannot_be_written(scene, obstacle, text):
    daemon = scene.scripted_daemon()
    if obstacle == "a directory":
        daemon.box.path(STATUS_FILE).mkdir()
    else:
        daemon.box.path(STATUS_FILE).symlink_to("/dev/full")
    daemon.start()
    assert daemon.wait_for_exit() == 30
    assert daemon.box.logged(text, 3)
    assert daemon.box.read("/var/run/mdnsproxy.pid") is None, "the PID file is removed"


def process_that_waits_in(system_call, box):
    """The id of the daemon's process, None while it is on its way there."""
    waiting = re.findall(r"^(\d+) (\d+)$", box.run("sh", "-c", """
        for process in /proc/[0-9]*; do
          [ "$(cat $process/comm 2>/dev/null)" != mdnsproxy ] ||
            echo ${process#/proc/} $(cut -d" " -f1 $process/syscall)
        done"""), re.MULTILINE)
    return next((int(pid) for pid, number in waiting if int(number) == system_call), None)


@pytest.mark.parametrize("path", [SERVICES_FILE, RULES_FILE, STATUS_FILE, PID_FILE])
def test_sigterm_ends_a_start_that_waits_for_the_other_end_of_a_fifo(scene, path):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b"))
    fifo = daemon.box.path(path)
    fifo.unlink(missing_ok=True)
    os.mkfifo(fifo)
    try:
        daemon.start()
        pid = wait_until(lambda: process_that_waits_in(OPENAT, daemon.box), 5, "an open that waits")
        daemon.box.tell(kill=pid, signal=int(signal.SIGTERM))
        wait_until(lambda: daemon.daemon_status is not None, 3, "the daemon's end")
        assert os.waitstatus_to_exitcode(daemon.daemon_status) == 10
        if path != STATUS_FILE:
            assert daemon.status_file == f"10\nReceived SIGTERM signal ({NUMBER}), exiting.\n"
        assert not daemon.box.path(PID_FILE).exists()
    finally:
        fifo.unlink(missing_ok=True)  # a reader of it, when the test has failed, would wait, too


def test_a_status_file_that_is_a_fifo_is_read_by_whoever_reads_it(scene):
    daemon = scene.scripted_daemon()
    fifo = daemon.box.path(STATUS_FILE)
    os.mkfifo(fifo)
    daemon.start()
    try:
        assert fifo.read_text(encoding="ascii") == "1\nStarting up, deamon PID = 0\n"
        assert fifo.read_text(encoding="ascii").startswith("0\nFinished startup")
        daemon.send(signal.SIGTERM)
        wait_until(lambda: daemon.daemon_status is not None, 3, "the end, which waits for nobody who reads")
        assert os.waitstatus_to_exitcode(daemon.daemon_status) == 10
    finally:
        fifo.unlink(missing_ok=True)


def test_the_status_file_over_a_run(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b")).start()
    wait_until(lambda: daemon.status_file, 5, "a status file")
    wait_until(lambda: daemon.status_code == 1, 1, "status 1")
    assert daemon.status_file == "1\nStarting up, deamon PID = 0\n"
    daemon.wait_until_running()
    assert daemon.status_file == ("0\nFinished startup, InitFromConfigFiles() processed without error, mdnsproxy "
                                  "(1.0.0) "
                                  "deamon PID = 0\n\n")
    assert daemon.stop() == 10
    assert daemon.status_file == f"10\nReceived SIGTERM signal ({NUMBER}), exiting.\n"


def test_the_program_that_was_called_ends_at_once_with_status_0(scene):
    daemon = scene.scripted_daemon().start()
    daemon.started_process.wait(within=2)
    assert daemon.started_process.exit_status == 0
    daemon.wait_until_running()


def test_a_service_of_no_type_and_a_rules_list_without_rules_are_no_errors(scene):
    daemon = scene.scripted_daemon(rule("Nothing", "a", "b", literal=False), services=services_list(Nothing=[]))
    daemon.start_and_wait()
    assert daemon.script.calls_of("DNSServiceBrowse") == []


def test_each_type_of_a_service_is_browsed_forth_and_back_in_the_order_of_the_file(scene):
    daemon = scene.scripted_daemon(rule("Media", "a", "b", bidirectional=True, literal=False),
                                   services=services_list(Media=["_airplay._tcp", "_raop._tcp"]))
    daemon.start_and_wait()
    browses = [call.split(" ")[4:6] for call in daemon.script.calls_of("DNSServiceBrowse")]
    assert [kind for _, kind in browses] == ["regtype=_airplay._tcp"] * 2 + ["regtype=_raop._tcp"] * 2
    interfaces = [interface for interface, _ in browses]
    assert interfaces[0] != interfaces[1]
    assert interfaces[0::2] == [interfaces[0]] * 2 and interfaces[1::2] == [interfaces[1]] * 2
