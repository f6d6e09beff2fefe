# SPDX-License-Identifier: MIT
"""Somebody sets the wall clock, as machines do that have no good clock of their own."""

import os

import pytest

import driver as d
from testbed import wait_until

HOUR = 3600
YEARS = 100_000_000  # seconds


@pytest.fixture
def clock(tmp_path):
    """Sets the clock of the programs that are started behind `clock.prefix`."""
    class Clock:
        file = tmp_path / "offset"
        prefix = ("env", f"LD_PRELOAD={os.environ['DNS_SD_SET_CLOCK']}", f"CLOCK_OFFSET_FILE={file}")

        def set(self, seconds):
            new = self.file.with_suffix(".new")
            new.write_text(str(seconds), encoding="ascii")
            new.rename(self.file)

    one = Clock()
    one.set(0)
    return one


@pytest.mark.parametrize("seconds", [-HOUR, YEARS])
def test_what_was_being_probed_for_when_the_clock_was_set_is_published(link, clock, seconds):
    looker, publisher = link.looker(), link.publisher(prefix=clock.prefix)
    air = link.air()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    publisher.record("r", link.near_index, "printer.local.", d.A, bytes([10, 9, 0, 7]), flags=d.UNIQUE)
    wait_until(lambda: air.probes(("My Printer", "_ipp", "_tcp", "local")), d.DEADLINE, "the first probe")
    clock.set(seconds)
    assert publisher.wait("reg")[0].error == publisher.wait("r")[0].error == 0
    looker.wait("br")


@pytest.mark.parametrize("seconds", [-HOUR, YEARS])
def test_a_publisher_whose_clock_was_set_goes_on_working(link, clock, seconds):
    looker, publisher = link.looker(), link.publisher(prefix=clock.prefix)
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("before", link.near_index, "Before")
    publisher.record("r", link.near_index, "printer.local.", d.A, bytes([10, 9, 0, 7]))
    looker.wait("br")
    clock.set(seconds)
    publisher.register("after", link.near_index, "After")
    looker.wait("br", 2)
    looker.query("q", link.far_index, "printer.local.", d.A)
    looker.wait("q")
    assert publisher.update("r", bytes([10, 9, 0, 8])) == 0
    looker.wait("q", 2)
    publisher.release("before")
    assert [d.text_of(reply.fields[0]) for reply in looker.wait("br", 3)] == ["Before", "After", "Before"]


def test_a_looker_whose_clock_was_set_back_goes_on_working(link, clock):
    looker, publisher = link.looker(prefix=clock.prefix), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("before", link.near_index, "Before")
    looker.wait("br")
    clock.set(-HOUR)
    publisher.register("after", link.near_index, "After")
    looker.wait("br", 2)
    looker.resolve("rs", link.far_index, "Before", "_ipp._tcp")
    looker.wait("rs")
    publisher.release("before")
    assert [d.add_flag(reply) for reply in looker.wait("br", 3)] == [True, True, False]


def test_a_looker_whose_clock_was_set_forward_finds_everything_again(link, clock):
    looker, publisher = link.looker(prefix=clock.prefix), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    looker.wait("br")
    clock.set(YEARS)
    fresh = link.looker(prefix=clock.prefix)
    fresh.browse("br", link.far_index, "_ipp._tcp")
    fresh.wait("br")
    publisher.register("after", link.near_index, "After")

    def found():
        present = set()
        for reply in looker.of("br"):
            (present.add if d.add_flag(reply) else present.discard)(d.text_of(reply.fields[0]))
        return present

    wait_until(lambda: found() == {"My Printer", "After"}, d.DEADLINE, "both to be present")
