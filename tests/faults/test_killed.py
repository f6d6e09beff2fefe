# SPDX-License-Identifier: MIT
"""The gateway is killed without a chance to say goodbye, and starts again while clients still hold what it said.

    link A            gateway            link B
    [ printers ]-----[ mdnsproxy ]-------[ browser ]
"""

import os
import signal

from testbed import Client, dns, rule, wait_until



def test_clients_notice_nothing_when_it_is_killed_and_starts_again(scene):
    network = scene.network("a", "b")
    daemon = scene.daemon(network.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
    device = scene.device(network["a"])
    services = [device.publish(f"Printer {number}", port=600 + number) for number in range(5)]
    names = [f"Printer {number}" for number in range(5)]
    browser = scene.browser(network["b"])
    for name in names:
        browser.sees(name, within=10)
    client = scene.keep(Client(network["b"], scene.ear(network["b"]), network.gateway))

    daemon.send(signal.SIGKILL)
    wait_until(lambda: daemon.daemon_status is not None, 5, "its end")
    assert os.WTERMSIG(daemon.daemon_status) == signal.SIGKILL
    assert daemon.pid_file, "a killed process cleans nothing up"
    assert sorted(browser.names) == names, "clients keep what they hold"

    # The new one finds the old PID file, and its own old records at the clients.
    daemon.box.ended.clear()
    daemon.start_and_wait()
    for name in names:
        assert client.finds(f"{name}._ipp._tcp.local", within=10)[3] == dns.labels("printer.local")
    assert sorted(browser.names) == names, "somebody was renamed or lost"
    assert not [event for event in browser.events if event[1] == "removed"], "somebody was lost for a while"
    # Five services: three probes and four announcements of two sets of records each, over two protocols, if nothing
    # shares a packet.
    assert len(client.heard_packets()) <= 5 * 7 * 2 * 2
    device.withdraw(services[0])
    browser.loses("Printer 0", within=5)
    assert daemon.stop() == 10
    wait_until(lambda: not browser.names, 5, lambda: f"goodbyes; {browser.names}")
