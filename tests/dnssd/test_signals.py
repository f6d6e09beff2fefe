# SPDX-License-Identifier: MIT
"""What the library does to the signals that would kill a process without its goodbyes."""

import os
import signal
import time

import pytest

import driver as d
from testbed import wait_until

ENDINGS = [signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT]


def publish(link, publisher):
    looker = link.looker()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    looker.wait("br")
    return looker


@pytest.mark.parametrize("number", ENDINGS)
def test_a_process_that_leaves_it_to_its_default_dies_of_it_after_its_goodbyes(link, number):
    publisher = link.publisher()
    looker = publish(link, publisher)
    before = time.monotonic()
    publisher.process.send_signal(number)
    assert publisher.wait_end() == -number
    assert looker.wait("br", 2)[1].time - before < 2


@pytest.mark.parametrize("number", ENDINGS)
def test_signals_are_taken_only_while_something_is_registered(link, number):
    publisher = link.publisher()
    publisher.browse("br", link.near_index, "_ipp._tcp")
    assert publisher.do("blocked", int(number)) == 0
    publisher.record("r", link.near_index, "h.local.", d.A, bytes([10, 9, 0, 7]))
    assert publisher.do("blocked", int(number)) == 1
    publisher.remove("r")
    assert publisher.do("blocked", int(number)) == 0
    publisher.register("reg", link.near_index, "My Printer")
    assert publisher.do("blocked", int(number)) == 1
    publisher.release("c")
    assert publisher.do("blocked", int(number)) == 0


def test_a_program_with_a_handler_keeps_its_signal(link):
    publisher = link.publisher()
    publisher.do("handle", int(signal.SIGTERM), "count")
    looker = publish(link, publisher)
    assert publisher.do("blocked", int(signal.SIGTERM)) == 0
    assert publisher.do("blocked", int(signal.SIGINT)) == 1
    publisher.process.send_signal(signal.SIGTERM)
    wait_until(lambda: publisher.do("handled") == 1, d.DEADLINE, "the handler to have run")
    assert publisher.process.poll() is None and len(looker.of("br")) == 1


def test_a_handler_installed_later_gets_the_signal(link):
    publisher = link.publisher()
    looker = publish(link, publisher)
    assert publisher.do("blocked", int(signal.SIGTERM)) == 1
    publisher.do("serve", "no")
    publisher.process.send_signal(signal.SIGTERM)
    publisher.do("handle", int(signal.SIGTERM), "count")
    publisher.do("serve", "yes")
    wait_until(lambda: publisher.do("handled") == 1, d.DEADLINE, "the handler to have run")
    assert publisher.do("blocked", int(signal.SIGTERM)) == 0
    assert len(looker.of("br")) == 1


def test_a_signal_that_the_program_blocks_itself_is_left_alone(link):
    publisher = link.publisher(prefix=["env", "--block-signal=TERM"])
    publish(link, publisher)
    publisher.process.send_signal(signal.SIGTERM)
    assert publisher.do("socket", "c") > 0
    assert publisher.process.poll() is None


def test_no_handler_runs_inside_the_library_or_a_callback(link):
    publisher = link.publisher()
    publisher.do("handle", int(signal.SIGUSR1), "count")
    for command in (("raise", int(signal.SIGUSR1)), ("handled",), ("blocked", int(signal.SIGUSR1)),
                    ("blocked", int(signal.SIGSEGV))):
        publisher.when("r", *command)
    publisher.record("r", link.near_index, "h.local.", d.A, bytes([10, 9, 0, 7]))
    publisher.wait("r")
    wait_until(lambda: publisher.log[-4:] == ["did\t0", "did\t0", "did\t1", "did\t0"], d.DEADLINE,
               "the callback's commands")
    assert publisher.do("handled") == 1  # it ran as soon as the library was left
    assert publisher.do("blocked", int(signal.SIGUSR1)) == 0


def test_the_caller_gets_its_own_mask_back(link):
    publisher = link.publisher(prefix=["env", "--block-signal=USR2"])
    publisher.record("r", link.near_index, "h.local.", d.A, bytes([10, 9, 0, 7]))
    publisher.wait("r")
    publisher.release("c")
    assert publisher.do("blocked", int(signal.SIGUSR2)) == 1
    assert publisher.do("blocked", int(signal.SIGUSR1)) == 0


def test_a_child_of_a_publishing_process_does_not_inherit_what_was_taken(link):
    publisher = link.publisher()
    publish(link, publisher)
    publisher.do("fork", f"after fork|{int(signal.SIGTERM)}")
    assert "did\t0" in publisher.log[-2:]


def test_process_1_of_a_pid_namespace_keeps_its_signals(link):
    publisher = link.publisher(prefix=["unshare", "-p", "-f", "--kill-child", "--mount-proc"])
    publish(link, publisher)
    assert publisher.do("blocked", int(signal.SIGTERM)) == 0
    assert os.path.exists("/proc")
