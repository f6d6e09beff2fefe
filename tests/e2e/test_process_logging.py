# SPDX-License-Identifier: MIT
"""What the daemon says, where and how loudly; and its options.

    [ mdnsproxy over a scripted libdns_sd.so.1 ]----- /dev/log of its own
"""

import re
import time

import pytest
from testbed import rule, wait_until

LOG_DAEMON = 24
BANNER = "\nmdnsproxy -- Zenmor Bonjour Gateway -- version 1.0.0\n\n"


def level(text):
    return f"[mdnsproxy]\nlog_level = {text}\n"


@pytest.mark.parametrize("option", ["-v", "-V"])
def test_the_banner_and_nothing_else(scene, option):
    daemon = scene.scripted_daemon().start(option)
    daemon.started_process.wait()
    assert daemon.started_process.exit_status == 0
    assert daemon.debug_stream == BANNER
    assert daemon.status_file is None and daemon.pid_file is None and daemon.script.calls == []


def test_the_banner_has_the_name_under_which_the_program_was_called(scene):
    daemon = scene.scripted_daemon()
    daemon.box.run("sh", "-c", "cp /mnt/program/* /tmp && mv /tmp/mdnsproxy /tmp/gateway")
    assert daemon.box.run("/tmp/gateway", "-v") == BANNER.replace("mdnsproxy", "gateway")


@pytest.mark.parametrize("options", [("-d",), ("-D",), ("-dv",), ("-d", "-v")], ids=" ".join)
def test_only_the_first_option_counts(scene, options):
    daemon = scene.scripted_daemon().start_and_wait(*options)
    assert "main(): *** Got D -- using debug level gLOG_DBG ***" in daemon.debug_stream
    assert "Zenmor" not in daemon.debug_stream


def test_an_unknown_option_is_complained_of_and_ignored(scene):
    daemon = scene.scripted_daemon().start_and_wait("-x")
    assert daemon.debug_stream == "/mnt/program/mdnsproxy: invalid option -- 'x'\n"
    assert daemon.stop() == 10


def test_syslog_shows_errors_only(scene):
    twice = rule("_ipp._tcp", "a", "b")
    daemon = scene.scripted_daemon(twice, twice).start_and_wait()
    assert daemon.box.syslog == [], "neither traces nor the warning of the second rule"


def test_every_line_carries_program_and_facility(scene):
    daemon = scene.scripted_daemon(services=None).start()
    assert daemon.wait_for_exit() == 110
    lines = daemon.box.syslog
    assert [line.priority for line in lines] == [3]
    assert {(line.identity, line.facility, line.pid) for line in lines} == {("mdnsproxy", LOG_DAEMON, None)}


@pytest.mark.parametrize("word", ["enable", "enabled", "enable1"])
def test_the_settings_open_the_syslog(scene, word):
    twice = rule("_ipp._tcp", "a", "b")
    daemon = scene.scripted_daemon(twice, twice, settings=level(word)).start_and_wait()
    assert daemon.box.logged("main_init...", 7)
    assert daemon.box.logged("mdnsproxy (version 1.0.0) started in verbose debug logging mode...", 7)
    assert daemon.box.logged("WARNING 111727: POSSIBLE ERROR: found existing if_to = b ", 4)


@pytest.mark.parametrize("word", ["enabl", "Enable", "disable", "yes", ""])
def test_any_other_word_leaves_the_syslog_closed(scene, word):
    daemon = scene.scripted_daemon(settings=level(word)).start_and_wait()
    assert daemon.box.logged("", 7) == []


def test_a_malformed_settings_file_is_reported_and_counts_as_missing(scene):
    daemon = scene.scripted_daemon(settings="[mdnsproxy\nlog_level = enable\n").start_and_wait()
    assert daemon.box.logged("", 7) == []
    reports = daemon.box.logged("/etc/mdnsproxy.conf")
    assert len(reports) == 1 and "1" in reports[0].text


def test_every_debug_line_begins_with_its_place_in_the_source(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b")).start_and_wait("-d")
    wait_until(lambda: "HandleEvents(): LOOP" in daemon.debug_stream, 2, "the event loop's trace")
    stream = daemon.debug_stream
    begun = [line for line in stream.splitlines() if line.startswith("mdnsproxy.c")]
    assert len(begun) > 20
    assert [line for line in begun if not re.match(r"mdnsproxy\.c:\d+:", line)] == []
    # The prefix is followed by the message at once, and a message of its own newline leaves an empty line.
    assert re.search(r"^mdnsproxy\.c:\d+:main_init\.\.\.$", stream, re.MULTILINE)
    assert re.search(r"^mdnsproxy\.c:\d+:HandleEvents\(\): LOOP: while \(!stopNow\): loop #1  \(max_loops = "
                     r"0\)\.\.\.\n\n", stream + "\n",
                     re.MULTILINE)


def test_debug_mode_keeps_the_streams_and_leaves_the_mask_narrow(scene):
    twice = rule("_ipp._tcp", "a", "b")
    daemon = scene.scripted_daemon(twice, twice).start_and_wait("-d")
    assert "111727" not in daemon.debug_stream, "warnings go to syslog alone, and its mask holds them back"
    assert "111727" not in "".join(line.text for line in daemon.box.syslog)
    assert daemon.box.run("readlink", f"/proc/{daemon.pid}/fd/1").strip().endswith("/output")


def test_warnings_reach_standard_error_in_debug_mode_once_the_mask_is_wide(scene):
    twice = rule("_ipp._tcp", "a", "b")
    daemon = scene.scripted_daemon(twice, twice, settings=level("enable")).start_and_wait("-d")
    lines = [line for line in daemon.debug_stream.splitlines() if "WARNING 111727" in line]
    assert len(lines) == 1
    assert re.match(r"mdnsproxy\[\d+\]: WARNING 111727: ", lines[0]), "by syslog itself, not by the debug stream"
    assert daemon.box.logged("WARNING 111727", 4)[0].pid == daemon.pid


def test_debug_mode_dumps_the_tables_to_syslog(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b"), settings=level("enable")).start_and_wait("-d")
    assert "********************* DONE WITH RULES ******************" in daemon.debug_stream
    dump = [line.text for line in daemon.box.syslog if line.priority == 7]
    assert any("_ipp._tcp" in text for text in dump)
    assert daemon.box.logged("", 7)


def test_a_rule_takes_half_a_second_and_the_files_are_a_second_apart(scene):
    daemon = scene.scripted_daemon(*[rule(f"_t{number}._tcp", "a", "b") for number in range(3)]).start()
    wait_until(lambda: daemon.status_code == 1, 5, "the beginning")
    begun = time.monotonic()
    daemon.wait_until_running()
    assert time.monotonic() - begun > 2.4
