# SPDX-License-Identifier: MIT
"""Releases at awkward moments, goodbyes however the process ends, forks, and an engine that has lost its descriptor."""

import time

import pytest

import driver as d
from testbed import stays_true, wait_until


def text(value):
    return d.Driver.text(value)


@pytest.fixture
def seen(link):
    """A printer that is published on the near side and seen on the far one."""
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    publisher.record("r", link.near_index, "printer.local.", d.A, bytes([10, 9, 0, 7]))
    looker.wait("br")
    publisher.wait("reg")
    return looker, publisher


def assert_gone(looker, since, within=2.0):
    gone = looker.wait("br", 2)[1]
    assert not d.add_flag(gone)
    assert gone.time - since < within


@pytest.mark.parametrize("how", ["release reg", "release c", "main", "exit", "exit in callback"])
def test_everything_withdrawn_gets_its_goodbye(seen, link, how):
    looker, publisher = seen
    before = time.monotonic()
    if how == "main":
        assert publisher.end() == 0
    elif how == "exit":
        publisher.send("exit", 7)
        assert publisher.wait_end() == 7
    elif how == "exit in callback":
        publisher.when("late", "exit", 8)
        publisher.record("late", link.near_index, "late.local.", d.A, bytes([10, 9, 0, 8]))
        assert publisher.wait_end() == 8
    else:
        publisher.do(*how.split())
    assert_gone(looker, before)


def test_the_exit_path_of_a_daemon_inside_a_callback(seen, link):
    looker, publisher = seen
    publisher.connect("c2")
    for command in (("release", "c"), ("release", "c2"), ("exit", 88)):
        publisher.when("late", *command)
    before = time.monotonic()
    publisher.record("late", link.near_index, "late.local.", d.A, bytes([10, 9, 0, 8]), connection="c2")
    assert publisher.wait_end() == 88
    assert_gone(looker, before)


def test_the_exit_path_of_a_daemon_in_a_handler_that_interrupts_select(seen):
    looker, publisher = seen
    publisher.do("handle", 15, "exit")
    before = time.monotonic()
    publisher.process.send_signal(15)
    assert publisher.wait_end() == 10
    assert_gone(looker, before)


def test_an_operation_may_be_released_in_its_own_callback(link):
    looker, publisher = link.looker(), link.publisher()
    for i in range(5):
        publisher.register(f"reg{i}", link.near_index, f"Printer {i}")
    for i in range(5):
        publisher.wait(f"reg{i}")
    looker.browse("warm", link.far_index, "_ipp._tcp")
    looker.wait("warm", 5)
    looker.when("br", "release", "br")
    looker.browse("br", link.far_index, "_ipp._tcp")
    looker.wait("br")
    looker.browse("after", link.far_index, "_ipp._tcp")
    looker.wait("after", 5)
    assert len(looker.of("br")) == 1  # the four that were queued behind it are not delivered


def every_kind(link, driver):
    """Starts one operation of each kind, to be answered sooner or later."""
    index = link.far_index
    driver.browse("browse", index, "_ipp._tcp")
    driver.resolve("resolve", index, "My Printer", "_ipp._tcp")
    driver.query("query", index, "printer.local.", d.A)
    driver.register("register", index, "Ours", regtype="_ours._tcp")
    driver.record("record", index, "ours.local.", d.A, bytes([10, 9, 0, 8]))


KINDS = ["browse", "resolve", "query", "register", "record"]


@pytest.mark.parametrize("kind", KINDS)
def test_any_operation_may_be_released_in_its_own_callback_and_no_other_minds(seen, link, kind):
    looker = link.looker()
    looker.when(kind, "remove" if kind == "record" else "release", kind)
    every_kind(link, looker)
    for name in KINDS:
        looker.wait(name)
    assert "did\t0" in looker.log
    looker.browse("after", link.far_index, "_ipp._tcp")
    looker.wait("after")
    assert len(looker.of(kind)) == 1


@pytest.mark.parametrize("kind", KINDS)
def test_all_may_be_released_in_the_callback_of_any(seen, link, kind):
    looker = link.looker()
    for name in KINDS:
        looker.when(kind, "remove" if name == "record" else "release", name)
    looker.when(kind, "release", "c")
    every_kind(link, looker)
    looker.wait(kind)
    wait_until(lambda: looker.log.count("did\t0") == 6, d.DEADLINE, "the releases")
    replies = len(looker.replies)
    looker.connect("anew")
    looker.browse("after", link.far_index, "_ipp._tcp", connection="anew")
    looker.wait("after")
    assert len(looker.replies) == replies + 1, "a reply for what was released"


def test_what_went_with_its_connection_may_be_released_once_more(seen, link):
    looker = link.looker()
    every_kind(link, looker)
    looker.release("c")
    for name in ("browse", "resolve", "query", "register", "c"):
        assert looker.do("socket", name) == -1
        looker.release(name)
    assert looker.remove("record") == d.BAD_REFERENCE
    assert looker.update("register", b"\x01b") == d.BAD_REFERENCE
    looker.connect("anew")
    for name in ("browse", "register", "c"):
        looker.release(name)  # none of them is the new one
    looker.browse("after", link.far_index, "_ipp._tcp", connection="anew")
    looker.wait("after")


def test_a_whole_connection_may_be_released_in_a_callback(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer")
    publisher.wait("reg")
    looker.when("br", "release", "c")
    looker.browse("br", link.far_index, "_ipp._tcp")
    looker.browse("br2", link.far_index, "_ipp._tcp")
    looker.wait("br")
    wait_until(lambda: "did\t0" in looker.log, d.DEADLINE, "the release")
    assert looker.do("socket", "c") == looker.do("socket", "br2") == -1
    assert looker.replies[-1].name == "br"
    assert looker.connect("c") == 0  # and a new engine works
    looker.browse("again", link.far_index, "_ipp._tcp")
    looker.wait("again")


def test_a_new_connection_may_be_made_in_the_callback_that_ended_the_last(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer")
    publisher.wait("reg")
    for command in (("release", "c"), ("connect", "c"),
                    ("browse", "again", "c", d.SHARE, link.far_index, text("_ipp._tcp"), "-")):
        looker.when("br", *command)
    looker.browse("br", link.far_index, "_ipp._tcp")
    looker.wait("again")


def test_processing_inside_a_callback_is_a_bad_state(link):
    looker, publisher = link.looker(), link.publisher()
    looker.when("br", "process", "c")
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    looker.wait("br")
    wait_until(lambda: f"did\t{d.BAD_STATE}" in looker.log, d.DEADLINE, "the command in the callback")


def test_nothing_is_delivered_for_what_was_released_while_replies_waited(link):
    looker, publisher = link.looker(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer")
    publisher.wait("reg")
    looker.browse("warm", link.far_index, "_ipp._tcp")
    looker.wait("warm")
    looker.do("serve", "no")
    looker.browse("br", link.far_index, "_ipp._tcp")
    looker.record("r", link.far_index, "x.local.", d.A, bytes([10, 9, 0, 9]))
    looker.release("br")
    looker.remove("r")
    looker.do("serve", "yes")
    looker.browse("after", link.far_index, "_ipp._tcp")
    looker.wait("after")
    assert looker.of("br") == looker.of("r") == []


def test_one_of_two_connections_ends_only_what_is_its_own(link):
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.connect("c2")
    publisher.register("one", link.near_index, "One")
    publisher.register("two", link.near_index, "Two", connection="c2")
    looker.wait("br", 2)
    publisher.release("c2")
    looker.wait("br", 3)
    assert d.text_of(looker.of("br")[2].fields[0]) == "Two"
    looker.resolve("rs", link.far_index, "One", "_ipp._tcp")
    looker.wait("rs")


def test_a_forked_child_says_no_goodbyes_for_its_parent(seen, link):
    looker, publisher = seen
    assert publisher.do("fork", "release|c") == 0
    assert publisher.do("fork", "socket|c") == 0
    looker.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    looker.wait("rs")
    stays_true(lambda: len(looker.of("br")) == 1, 2, "no goodbye has an effect")
    publisher.register("still", link.near_index, "Still alive")  # the parent's engine is untouched
    looker.wait("br", 2)


def test_the_parents_references_are_bad_ones_in_a_child_that_may_begin_anew(seen, link):
    looker, publisher = seen
    assert publisher.do("fork", "connect|mine") == 0
    assert publisher.do("fork", "socket|c") == 0
    assert "did\t-1" in publisher.log


def test_a_process_may_fork_before_its_first_connection(link):
    looker, publisher = link.looker(), link.publisher(connect=False)
    publisher.do("fork", "connect|in child")
    assert publisher.connect() == 0
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    looker.wait("br")


def test_an_engine_that_has_lost_its_descriptor_says_so(link):
    looker = link.looker()
    looker.browse("br", link.far_index, "_ipp._tcp")
    fd = looker.do("socket", "c")
    looker.do("serve", "no")
    assert looker.do("close", fd) == 0
    assert looker.do("process", "c") == d.NOT_RUNNING
    assert looker.do("process", "c") == d.NOT_RUNNING
    looker.release("c")
    assert looker.connect("c2") == 0
    assert looker.do("process", "c2") == 0


def test_a_killed_publisher_is_replaced_by_the_next_one(seen, link):
    looker, publisher = seen
    publisher.kill()
    successor = link.publisher()
    successor.register("reg", link.near_index, "My Printer", port=632)
    assert d.text_of(successor.wait("reg")[0].fields[0]) == "My Printer"
    fresh = link.looker()
    fresh.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    assert int(fresh.wait("rs")[0].fields[2]) == 632
