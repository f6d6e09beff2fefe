# SPDX-License-Identifier: MIT
"""As many instances as the daemon takes, and one more.

    link a                          gateway                link b
    [ 2001 devices, and more ]----[ a   mdnsproxy   b ]----[ watcher ]

The deadlines are those of a machine that does other things as well; bench/ judges how fast it is.
"""

import syslog

import pytest
from testbed import addresses_on, rule, stays_true, wait_until
from testbed.crowd import Crowd, Watcher

LIMIT = 2001  # instances that the daemon forwards at a time
ONE_MORE = LIMIT  # the number of the first device beyond it: they count from 0
GOODBYE_KEPT = 1.5  # seconds; RFC 6762 section 10.1: a goodbye takes effect after one second
PATIENCE = 90  # seconds; what is asked of the daemon here takes it a few when it is alone on the machine


@pytest.fixture(name="town")
def make_town(scene):
    return Town(scene)


class Town:
    def __init__(self, scene):
        network = scene.network("a", "b")
        self.watcher = scene.keep(Watcher(network["b"], addresses_on(network.gateway, "b")))
        self.devices = scene.keep(Crowd(network["a"]))
        self.daemon = scene.daemon(network.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()

    def fill_to_the_limit(self):
        begin, end = self.devices.announce(0, LIMIT, seconds=0.9)
        assert end - begin < 1.1, "the devices themselves were slow"
        self.watcher.sees(LIMIT, within=PATIENCE)

    def refusals(self):
        return self.daemon.box.logged(f"callback_ServiceBrowse(): Maxnum({LIMIT}) of responder reached...",
                                      syslog.LOG_ERR)

    def is_there(self, number):
        return self.watcher.is_there(f"Device {number}")


def test_the_limit_is_reached_kept_and_given_back(town):
    town.fill_to_the_limit()
    assert town.watcher.there == LIMIT
    assert not town.refusals()

    # One more is refused, and says so.
    town.devices.announce(ONE_MORE, 1)
    wait_until(town.refusals, PATIENCE, "the line in syslog that an instance is refused")
    stays_true(lambda: not town.is_there(ONE_MORE), GOODBYE_KEPT, "the one beyond the limit is not on link b")

    # One goes: that makes room, but nothing remembers who was refused.
    town.devices.withdraw(ONE_MORE, 1)
    town.devices.withdraw(0, 1)
    wait_until(lambda: not town.is_there(0), PATIENCE, "the first device gone from link b")
    stays_true(lambda: not town.is_there(ONE_MORE), GOODBYE_KEPT, "the one that was refused is not on link b")

    # It announces itself again, and is taken; the next one is refused again.
    town.devices.announce(ONE_MORE, 1)
    wait_until(lambda: town.is_there(ONE_MORE), PATIENCE, "the one that was refused before")
    before = len(town.refusals())
    town.devices.announce(ONE_MORE + 1, 1)
    wait_until(lambda: len(town.refusals()) > before, PATIENCE, "the refusal of the next")

    # All of them go.
    town.devices.withdraw(0, ONE_MORE + 2, seconds=0.9)
    town.watcher.loses_all(within=PATIENCE)
    assert town.daemon.stop() == 10
