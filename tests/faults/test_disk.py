# SPDX-License-Identifier: MIT
"""A status file that cannot be written.

    link A           gateway                            link B
    [ printer ]-----[ mdnsproxy, /tmp of a few pages ]--[ client ]

The box's /tmp is where the status file goes; a small file system is mounted there, and is then full.
"""

import pytest
from testbed import Client, rule, wait_until

RULES = "/tmp/mdnsproxyrule-list.xml"
STATUS = "/tmp/mdnsproxy.out"
# Room for the rules list and a status file, and little more. The box shows its files below /run to the test too.
SMALL_TMP = f"cp {RULES} /run/rules && mount -t tmpfs -o size=16k small /tmp && cp /run/rules {RULES}"
# Not even the page of an old status file is left to write a new one.
FILL = f"rm -f {STATUS}; cat /dev/zero >/tmp/filling 2>/dev/null; true"


class SmallDisk:
    def __init__(self, scene):
        self.network = scene.network("a", "b")
        self.daemon = scene.daemon(self.network.gateway, rule("_ipp._tcp", "a", "b"))
        self.shell(SMALL_TMP)

    def shell(self, command):
        """Runs a command in the box; it has to succeed."""
        assert self.daemon.box.start("/bin/sh", "-c", command, by_init=True).wait() == 0, command

    def status_file(self):
        self.shell(f"cat {STATUS} >/run/status 2>/dev/null; true")
        return self.daemon.box.read("/run/status")

    def ends_with(self, status, within=10):
        exited = wait_until(lambda: [code for pid, code in self.daemon.box.ended.items()
                                     if pid not in self.daemon.box.started],
                            within, "the daemon's end")
        assert exited[0] >> 8 == status and exited[0] & 0x7F == 0
        assert self.daemon.pid_file is None


@pytest.fixture
def disk(scene):
    return SmallDisk(scene)


def test_a_disk_that_is_full_at_the_start_ends_it_with_status_30(disk):
    disk.shell(FILL)
    disk.daemon.start()
    disk.ends_with(30)
    assert disk.daemon.box.logged("ERROR 30130117011911: Could not write to status file /tmp/mdnsproxy.out, exiting", 3)


def test_a_disk_that_fills_up_later_does_not_keep_it_from_withdrawing(disk, scene):
    disk.daemon.start()
    wait_until(lambda: disk.status_file().startswith("0\n"), 10, "running")
    client = scene.keep(Client(disk.network["b"], scene.ear(disk.network["b"]), disk.network.gateway))
    scene.device(disk.network["a"]).publish("Office Printer")
    client.finds("Office Printer._ipp._tcp.local", within=10)
    disk.shell(FILL)
    disk.daemon.send(15)
    disk.ends_with(30)
    wait_until(lambda: not client.held(), 2, lambda: f"goodbyes; link B still holds {client.held()}")


def test_a_status_file_that_cannot_be_opened_ends_it_with_status_30(disk):
    disk.shell(f"mkdir {STATUS}")
    disk.daemon.start()
    disk.ends_with(30)
    assert disk.daemon.box.logged("ERROR 30130117011910: Could not open status file /tmp/mdnsproxy.out, exiting", 3)
    assert not disk.daemon.box.logged("ERROR 30130117011911")
