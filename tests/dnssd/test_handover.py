# SPDX-License-Identifier: MIT
"""A restart that the link does not notice: the next process goes on with what the former one has published."""

import pathlib
import time

import pytest

import driver as d
from testbed import dns, wait_until

TYPE = "_ipp._tcp.local."
HOST, OTHER_HOST = "printer.local.", "printer-2.local."
ADDRESS = bytes([10, 9, 0, 7])
OWNER = "10.9.0.99"
OVER = 12  # seconds: what nobody has registered again is taken back after five, and goes after a sixth


class Machine:
    """One process after another that publish on the near host."""

    def __init__(self, link, folder):
        self.link, self.path = link, pathlib.Path(folder, "handover")
        self.told_to_end = 0.0
        self.air = link.air()

    def start(self):
        return self.link.publisher(env={"MDNSPROXY_HANDOVER": str(self.path)})

    def publish(self, process, *names, txt=b"\x03a=1"):
        for name in names:
            assert process.register(name, self.link.near_index, name, txt=txt) == 0
        assert process.record("a", self.link.near_index, HOST, d.A, ADDRESS) == 0
        for name in names:
            process.wait(name)

    def want(self):
        pathlib.Path(f"{self.path}.wanted").touch()

    def end(self, process):
        """Ends it as a service manager does; the time at which it had ended. Packets have the time of the same
        clock."""
        self.told_to_end = time.monotonic()
        process.process.terminate()
        process.wait_end()
        return time.monotonic()

    def hand_over(self, *names):
        """One process publishes them and is ended with the wish; the time at which it had ended."""
        former = self.start()
        self.publish(former, *names)
        self.announced(*names)
        self.want()
        return self.end(former)

    def announced(self, *names):
        """Waits until all of them have been announced twice, as everything is."""
        for name in names:
            wait_until(lambda: len(self.air.said(instance(name), d.SRV)) >= 2, d.DEADLINE,
                       f"the second announcement of {name}")


def instance(name):
    return f"{name}.{TYPE}"


@pytest.fixture
def machine(link, tmp_path):
    return Machine(link, tmp_path)


def goodbyes(machine, since):
    return [record for packet in machine.air.sent_by(*machine.air.near, since=since) if packet.message
            for record in packet.message.answers if record.ttl == 0]


def test_what_is_registered_again_is_neither_taken_back_nor_probed_for_nor_announced(machine):
    ended = machine.hand_over("Same", "Left out")
    next_one = machine.start()
    machine.publish(next_one, "Same")
    wait_until(lambda: goodbyes(machine, machine.told_to_end), OVER, "the goodbye of what was left out")
    gone = {dns.text(record.name) if record.kind != d.PTR else dns.text(record.data)
            for record in goodbyes(machine, machine.told_to_end)}
    assert gone == {instance("Left out").rstrip(".")}
    assert not machine.air.probes(instance("Same"), since=ended) and not machine.air.probes(HOST, since=ended)
    assert not machine.air.said(instance("Same"), d.SRV, since=ended) and not machine.air.said(HOST, d.A, since=ended)
    assert not [record for _, record in machine.air.said(TYPE, d.PTR, since=ended) if record.ttl]
    assert next_one.end() == 0


def test_it_answers_from_its_first_pass(machine):
    ended = machine.hand_over("Same")
    machine.start()
    machine.air.ask(instance("Same"), d.SRV)
    wait_until(lambda: machine.air.said(instance("Same"), d.SRV, since=ended), 3, "the answer")
    assert not machine.air.probes(instance("Same"), since=ended)


def test_other_data_is_an_update(machine):
    ended = machine.hand_over("Same")
    next_one = machine.start()
    machine.publish(next_one, "Same", txt=b"\x03a=2")
    wait_until(lambda: machine.air.said(instance("Same"), d.TXT, since=ended), d.DEADLINE, "the other data")
    assert not machine.air.probes(instance("Same"), since=ended) and not goodbyes(machine, machine.told_to_end)


def test_a_host_keeps_the_name_that_it_had_to_take(machine):
    former = machine.start()
    machine.publish(former, "Same")
    machine.air.say(dns.Record(dns.labels(HOST), dns.A, OWNER, 120, flush=True))
    wait_until(lambda: len(machine.air.said(OTHER_HOST, d.A)) >= 2, d.DEADLINE, "the other name")
    machine.announced("Same")
    machine.want()
    ended = machine.end(former)
    next_one = machine.start()
    machine.publish(next_one, "Same", "Marker")
    wait_until(lambda: machine.air.said(instance("Marker"), d.SRV, since=ended), d.DEADLINE, "the next process")
    assert not machine.air.probes(HOST, since=ended) and not goodbyes(machine, machine.told_to_end)
    assert not machine.air.said(instance("Same"), d.SRV, since=ended)
    assert {dns.text(record.data[3]) for _, record in machine.air.said(instance("Marker"), d.SRV, since=ended)} == {
        OTHER_HOST.rstrip(".")}


def test_without_a_wish_it_ends_as_always(machine):
    former = machine.start()
    machine.publish(former, "Same")
    machine.announced("Same")
    ended = time.monotonic()
    machine.end(former)
    wait_until(lambda: len(goodbyes(machine, ended)) >= 4, d.DEADLINE, "its goodbyes")
    assert not machine.path.exists()


def test_a_wish_that_was_for_another_process_is_none(machine):
    machine.want()
    process = machine.start()
    assert not pathlib.Path(f"{machine.path}.wanted").exists()
    machine.publish(process, "Same")
    machine.announced("Same")
    ended = time.monotonic()
    machine.end(process)
    wait_until(lambda: goodbyes(machine, ended), d.DEADLINE, "its goodbyes")


@pytest.mark.parametrize("spoil", [lambda whole: whole[:-9],
                                   lambda whole: whole[:80] + bytes([whole[80] ^ 1]) + whole[81:], lambda whole: b"",
                                   lambda whole: whole * 2], ids=["short", "scribbled", "empty", "twice"])
def test_a_file_that_is_not_whole_is_ignored(machine, spoil):
    ended = machine.hand_over("Same")
    machine.path.write_bytes(spoil(machine.path.read_bytes()))
    next_one = machine.start()
    machine.publish(next_one, "Same")
    assert machine.air.probes(instance("Same"), since=ended)
    assert not machine.path.exists()


def test_who_ends_before_anything_is_registered_again_takes_all_of_it_back(machine):
    ended = machine.hand_over("Same")
    machine.end(machine.start())
    wait_until(lambda: len(goodbyes(machine, ended)) >= 4, d.DEADLINE, "its goodbyes")
