# SPDX-License-Identifier: MIT
"""`mdnsproxyctl doctor` looks at the whole machine: it names what is wrong with its cure, and what it has found well.

      link a               gateway                link b
    [ device ]----- a [ mdnsproxy ] b -----[ client ]
     10.1.0.2             | c                10.2.0.2
                      [ device ]
                       10.3.0.2
"""

import re
import signal
import socket

import pytest
from testbed import Ctl, rule, wait_until

LINKS = "a", "b", "c"
RULES_FILE = "/tmp/mdnsproxyrule-list.xml"
NOBODY = 65534


def look(daemon, user=0):
    """(exit status, findings, what was well, what was not looked at), each by (subject, text)."""
    status, answer = Ctl(daemon, user=user).json("doctor")
    assert answer["schema"] == 1 and {"running", "pid"} <= answer["daemon"].keys()
    for finding in answer["findings"]:
        assert finding.keys() == {"severity", "subject", "text", "cure"}
        assert finding["severity"] in ("error", "warning") and finding["cure"]
    return status, *([(each["subject"], each["text"]) for each in answer[part]]
                     for part in ("findings", "well", "not_looked_at"))


def wait_for_service(daemon, name):
    wait_until(lambda: Ctl(daemon)("services", name, "--state", "forwarded")[1].count(name), 10, name)


def test_what_is_well_is_said_to_have_been_looked_at(scene, net, daemon):
    scene.device(net["a"]).publish("Air Printer")
    wait_for_service(daemon, "Air Printer")
    net.gateway.run("nft add table ip filter")
    status, findings, well, not_seen = look(daemon)
    assert (status, findings) == (0, [])
    assert {subject for subject, _ in well} >= {"daemon", "start", "lists", "a", "b", "port 5353", "forwarding",
                                                "routes", "packet filter", "reflectors"}
    assert ("lists", f"{RULES_FILE} and /etc/mdnsservice-list.xml: 1 rules, no mistake") in well
    assert ("port 5353", f"held by mdnsproxy (process {daemon.pid})") in well
    assert ("routes", "2 addresses of services, each by the link of its service") in well
    assert ("packet filter", "a: it lets UDP port 5353 pass on a") in well
    start = dict(well)["start"]
    assert re.fullmatch(r"last start \d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ; 1 rules installed after \d+\.\d s; "
                        r"announcements of 1 services "
                        r"complete after \d+\.\d s", start), start
    assert "buffers" in {subject for subject, _ in well + not_seen}
    text = Ctl(daemon)("doctor")[1]
    assert re.search(r"^ok +lists +/tmp/mdnsproxyrule-list.xml", text, re.MULTILINE)
    status, findings, well, not_seen = look(daemon, NOBODY)
    assert (status, findings) == (0, [])
    words = "not looked at: only root may read the packet filter; run this command again by sudo"
    assert ("packet filter", words) in not_seen
    assert ("port 5353", "held by a process of user 0") in well


def test_what_is_wrong_is_named_with_its_cure(scene, net, daemon):
    scene.device(net["c"]).publish('Elsewhere\x1b[31m"')
    net.gateway.run("ip link set dev b down")
    net.gateway.set("net/ipv4/ip_forward", 0)
    net.gateway.run("nft add table inet filter")
    net.gateway.run("nft add chain inet filter input { type filter hook input priority 0 ; }")
    net.gateway.run("nft add rule inet filter input iifname a udp dport 5353 counter drop")
    daemon.box.write(RULES_FILE, rule("_ipp._tcp", "a", "b") + rule("_http._tcp", "a", "nonsense"))
    elsewhere = ("a", "nothing of its rules' types is heard; c has 1 of them")
    status, findings, *_ = wait_until(lambda: next((seen for seen in [look(daemon)] if elsewhere in seen[1]), None), 20,
                                      "a look at c")
    assert status == 2
    texts = dict(findings)
    assert texts["b"] == "it is down"
    assert "does not forward IPv4 packets between a and b" in texts["forwarding"]
    assert texts["lists"].startswith(f"{RULES_FILE}:2: ") and "nonsense" in texts["lists"]
    deaf = [text for subject, text in findings if subject == "a" and text.startswith("DEAF")]
    assert len(deaf) == 1 and "dropped by chain input of table inet filter" in deaf[0]
    text = Ctl(daemon)("doctor")[1]
    assert text.startswith("error: ") and "warning: " in text
    assert text.index("error: ") < text.index("warning: ") < text.index("\nok ")
    assert "\x1b" not in text
    status, findings, *_ = look(daemon, NOBODY)
    assert status == 2 and elsewhere in findings and ("b", "it is down") in findings


def test_a_rule_for_the_loopback_interface(scene, net):
    daemon = scene.daemon(net.gateway, rule("_ipp._tcp", "lo", "b"), state_file=True).start_and_wait()
    for user in (0, NOBODY):
        status, findings, *_ = look(daemon, user)
        assert status == 2 and ("lo", "it cannot multicast") in findings


def test_another_socket_other_rules_than_the_lists_hold_and_an_older_packet_filter(net, daemon):
    net.gateway.run("iptables-legacy -L")
    net.gateway.run("nft add table ip filter")
    passes = ("packet filter", "a: it lets UDP port 5353 pass on a")
    assert passes in look(daemon)[2], "tables without a rule hinder nobody"
    net.gateway.run("ip6tables-legacy -A INPUT -p udp --dport 5353 -j ACCEPT")
    daemon.box.write(RULES_FILE, rule("_http._tcp", "a", "b"))
    with net.gateway.entered():
        other = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    with other:
        other.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        other.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
        other.bind(("", 5353))
        status, findings, well, not_seen = look(daemon)
    assert (status, [subject for subject, _ in findings]) == (1, ["lists"])
    words = "not looked at: the rules of iptables-legacy, which iptables-legacy-save shows"
    assert {text for subject, text in not_seen if subject == "packet filter"} == {f"a: {words}", f"b: {words}"}
    assert "packet filter" not in dict(well)
    assert "the daemon has other rules" in findings[0][1]
    assert dict(well)["port 5353"].startswith("shared, as it may be, by ")


@pytest.mark.parametrize("remove, status", [(False, 3), (True, 4)])
def test_without_a_daemon_the_machine_is_looked_at(net, daemon, remove, status):
    daemon.send(signal.SIGTERM)
    wait_until(lambda: daemon.daemon_status is not None, 10, "its end")
    if remove:
        daemon.box.path("/run/mdnsproxy/state").unlink()
    net.gateway.run("ip link delete dev b")
    ended, findings, well, _ = look(daemon)
    assert ended == status
    assert findings[0][0] == "daemon"
    assert ("b", "there is no such interface") in findings
    assert "a" in dict(well)
