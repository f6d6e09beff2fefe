# SPDX-License-Identifier: MIT
"""Signals, and how the daemon stands in its process table.

    [ mdnsproxy over a scripted libdns_sd.so.1, in a process table of its own ]
"""

import re
import signal
import time

import pytest
from testbed import rule, wait_until
from testbed.script import ADD, NO_SUCH_RECORD

VERBOSE = "[mdnsproxy]\nlog_level = enable\n"
ENDINGS = {
    signal.SIGHUP: "Received SIGHUP signal ({}) -- currently unhandled, exiting.",
    signal.SIGINT: "Received SIGINT signal ({}), exiting.",
    signal.SIGQUIT: "Received SIGQUIT signal ({}), exiting.",
    signal.SIGTERM: "Received SIGTERM signal ({}), exiting.",
}


def loops(daemon):
    """The numbers of the event loop's passes, as far as they were logged."""
    return [int(line.text.split("loop #")[1].split()[0]) for line in daemon.box.logged("HandleEvents(): LOOP")]


@pytest.mark.parametrize("number", ENDINGS, ids=lambda number: number.name)
def test_it_ends_on(scene, number):
    daemon = scene.scripted_daemon(settings=VERBOSE).start_and_wait()
    assert daemon.stop(number, within=2) == 10
    assert daemon.status_file == f"10\n{ENDINGS[number].format(2147483647)}\n"
    assert daemon.box.logged(ENDINGS[number].format(int(number)), 4)
    assert daemon.pid_file is None
    releases = [call.split()[2] for call in daemon.script.calls_of("DNSServiceRefDeallocate")]
    assert releases == ["connection-1", "connection-2"]


def test_it_ends_at_once_while_it_pauses_at_its_start(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b")).start()
    wait_until(lambda: daemon.script.calls_of("DNSServiceCreateConnection")[1:], 5, "both connections")
    asked = time.monotonic()
    assert daemon.stop(within=3) == 10
    assert time.monotonic() - asked < 0.9, "the pause was waited for"
    assert daemon.status_code == 10 and daemon.pid_file is None


def test_it_ends_while_replies_keep_coming(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b")).start_and_wait()
    for number in range(300):
        daemon.script.says("browse", 1, ADD, 2, 0, f"Printer {number}", "_ipp._tcp.", "local.")
    daemon.script.wait_for_call("DNSServiceResolve")
    assert daemon.stop() == 10
    assert daemon.status_code == 10


def test_a_second_signal_during_the_end_changes_nothing(scene):
    daemon = scene.scripted_daemon().start_and_wait()
    pid = daemon.pid
    for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT):
        daemon.box.tell(kill=pid, signal=int(number))
    assert daemon.wait_for_exit() == 10
    assert daemon.status_code == 10 and daemon.pid_file is None
    assert len(daemon.script.calls_of("DNSServiceRefDeallocate")) == 2


def test_usr1_opens_the_syslog_and_usr2_closes_it(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b")).start_and_wait()
    assert not daemon.box.logged("", 7), "the mask is narrow at first"
    daemon.send(signal.SIGUSR1)
    wait_until(lambda: daemon.box.logged("HandleEvents(): LOOP", 7), 2, "traces in syslog")
    daemon.send(signal.SIGUSR2)
    wait_until(lambda: daemon.box.logged("signal_handler(): aSignal = 12 ...", 7), 2, "the second signal")
    traces = len(daemon.box.syslog)
    daemon.script.says("browse", 1, ADD, 2, 0, "Printer", "_ipp._tcp.", "local.")
    daemon.script.wait_for_call("DNSServiceResolve")
    assert daemon.stop() == 10
    assert [line for line in daemon.box.syslog[traces:] if line.priority > 3] == []


def test_usr1_and_usr2_say_so_on_standard_output_in_debug_mode(scene):
    daemon = scene.scripted_daemon().start_and_wait("-d")
    daemon.send(signal.SIGUSR1)
    wait_until(lambda: "mdnsproxy open the syslog!\n" in daemon.debug_stream, 2, "the line of SIGUSR1")
    daemon.send(signal.SIGUSR2)
    wait_until(lambda: "mdnsproxy close the syslog!\n" in daemon.debug_stream, 2, "the line of SIGUSR2")


def test_an_interrupted_wait_costs_one_pass(scene):
    daemon = scene.scripted_daemon(settings=VERBOSE).start_and_wait()
    wait_until(lambda: loops(daemon) == [1], 2, "the first pass")
    daemon.send(signal.SIGUSR1)
    wait_until(lambda: loops(daemon) == [1, 2], 2, "the second pass")
    assert daemon.box.logged("select() returned -1 errno 4 Interrupted system call", 7)


def test_sigio_is_logged_and_ignored(scene):
    daemon = scene.scripted_daemon(settings=VERBOSE).start_and_wait()
    daemon.send(signal.SIGIO)
    wait_until(lambda: daemon.box.logged("Received SIGPOLL signal (29), unhandled, ignoring and continuing execution "
                                         "as normal.", 4),
               2, "the warning")
    assert daemon.box.logged("sig_sigpoll(): GOT SIGNAL: 29", 7)
    assert daemon.status_code == 0
    assert daemon.stop() == 10


def test_a_signal_from_within_a_reply_is_handled_after_it(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b"), settings=VERBOSE).start_and_wait()
    daemon.script.says("signal", int(signal.SIGTERM))
    daemon.script.says("browse", 1, ADD, 2, 0, "Printer", "_ipp._tcp.", "local.")
    assert daemon.wait_for_exit() == 10
    assert daemon.script.calls_of("DNSServiceResolve") == [], "it had ended before the next reply"


def test_it_stands_apart_from_whoever_started_it(scene):
    daemon = scene.scripted_daemon().start_and_wait()
    pid = daemon.pid
    status = dict(re.findall(r"^(\w+):\t(.*)$", daemon.box.run("cat", f"/proc/{pid}/status"), re.MULTILINE))
    stat = daemon.box.run("cat", f"/proc/{pid}/stat").rsplit(")", 1)[1].split()
    assert status["PPid"] == "1"
    assert int(stat[3]) == pid, "it leads its session"
    links = [daemon.box.run("readlink", f"/proc/{pid}/{link}").strip() for link in ("cwd", "fd/0", "fd/1", "fd/2")]
    assert links == ["/tmp"] + ["/dev/null"] * 3
    blocked = int(status["SigBlk"], 16)
    assert all(blocked & 1 << number - 1 for number in (signal.SIGCHLD, signal.SIGTSTP, signal.SIGTTOU, signal.SIGTTIN))
    assert not blocked & 1 << signal.SIGTERM - 1, "signals come through while it waits"


def test_it_may_leave_a_whole_core_file(scene):
    daemon = scene.scripted_daemon().start_and_wait()
    limits = daemon.box.run("cat", f"/proc/{daemon.pid}/limits")
    assert re.search(r"^Max core file size +unlimited +unlimited ", limits, re.MULTILINE)


@pytest.mark.parametrize("connection", [1, 2])
def test_a_lost_responder_ends_it_with_status_0_and_without_cleaning_up(scene, connection):
    daemon = scene.scripted_daemon(settings=VERBOSE).start_and_wait()
    pid, before = daemon.pid, daemon.status_file
    daemon.script.says("return", NO_SUCH_RECORD, connection=connection)
    assert daemon.wait_for_exit() == 0
    assert daemon.box.logged(f"DNSServiceProcessResult returned {NO_SUCH_RECORD}", 7)
    assert daemon.status_file == before and before.startswith("0\n")
    assert daemon.pid_file == f"{pid}\n"
    assert daemon.script.calls_of("DNSServiceRefDeallocate") == []
