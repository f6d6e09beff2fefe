# SPDX-License-Identifier: MIT
"""mdnsproxyctl report: the page beside a running daemon, and without one.

      link a               gateway                link b
    [ device ]----- a [ mdnsproxy ] b -----[ client ]
     10.1.0.2                                10.2.0.2
"""

import re
import signal
import socket
import xml.etree.ElementTree

from testbed import Ctl, rule, wait_until

SCRIPT = "</bdi><script>alert('1')</script>"
CONTROLS = 'quote " & tick\n\x1b[31m\u202eright'
CONTROLS_SHOWN = r'quote " & tick\010\027[31m\226\128\174right'
JAPANESE = "プリンタ" * 5 + "プ"
PAGE = "/tmp/report.html"
RULES = [rule("_ipp._tcp", "a", "b", bidirectional=True)]


class Page:
    """The page, read by a parser that takes nothing which is not well-formed. `rows`: what each service's row says."""

    def __init__(self, text):
        self.root = xml.etree.ElementTree.fromstring(text)
        self.text = "".join(self.root.find("body").itertext())
        self.title = self.root.find("head/title").text
        self.rows = {row.find("p/bdi").text: [self.words(part) for part in row]
                     for row in self.root.iter("li") if row.find("p/bdi") is not None}
        rows = self.root.findall(".//table[@class='events']/tbody/tr")
        self.events = [[self.words(cell) for cell in row] for row in rows]

    @staticmethod
    def words(element):
        return " ".join(filter(None, (part.strip() for part in element.itertext())))


def page_of(ctl, *options):
    """(exit status, the page)"""
    status, output = ctl(*options, "report")
    return status, Page(output)


def test_a_running_daemon_with_its_services(scene, net, daemon):
    ctl = Ctl(daemon)
    status, page = page_of(ctl)
    assert (status, page.rows, page.events) == (0, {}, [])
    assert page.title.startswith(f"mdnsproxy on {socket.gethostname()}, 20")
    device = scene.device(net["a"])
    for port, name in enumerate((SCRIPT, CONTROLS, JAPANESE), start=1000):
        device.publish(name, port=port)
    scene.device(net["a"], host="ghost", addresses=[]).publish("Ghost")
    scene.device(net["a"], host="local", addresses=["169.254.7.7"]).publish("Local")

    def settled():
        states = sorted(service["state"] for service in ctl.json("services")[1]["services"])
        return states == ["forwarded"] * 3 + ["refused"] * 4 + ["waiting"]
    wait_until(settled, 10, lambda: ctl.json("services"))

    assert ctl("report", "-o", PAGE) == (1, "")
    text = daemon.box.read(PAGE)
    page = Page(text)
    assert set(page.rows) == {SCRIPT, CONTROLS_SHOWN, JAPANESE, "Ghost", "Local"}
    for port, name in enumerate((SCRIPT, CONTROLS_SHOWN, JAPANESE), start=1000):
        where, arrow, there = page.rows[name]
        assert where.startswith(name) and f"port {port}" in where
        assert arrow.startswith("forwarded for ") and there == name
    assert "3 that went the other way and do not come back" in page.text
    assert page.rows["Ghost"][1].startswith("its host has no address waiting for ")
    assert page.rows["Local"][1].startswith("its host has only link-local addresses refused for ")
    assert "line 1, both ways: _ipp._tcp" in page.text
    assert "index" in page.text and "10.1.0.1" in page.text and "fd00:2::1" in page.text
    assert {(name, state) for _, name, _, way, state in page.events if way == "a → b"} >= {
        (SCRIPT, "forwarded"), (CONTROLS_SHOWN, "forwarded"), (JAPANESE, "forwarded"),
        ("Ghost", "waiting: its host has no address")}
    assert "<script" not in text and "\u202e" not in text and "\x1b" not in text

    status, answer = ctl.json("report", "-o", "-")
    assert (status, answer["schema"], answer["daemon"]["running"], answer["host"]) == (1, 1, True, socket.gethostname())
    assert {service["service"] for service in answer["services"]} == {SCRIPT, CONTROLS, JAPANESE, "Ghost", "Local"}
    assert {check["result"] for check in answer["checks"]} == {"well"}
    assert {check["subject"] for check in answer["checks"]} >= {
        "daemon", "start", "a", "b", "lists", "port 5353", "forwarding", "routes", "packet filter"}
    assert {each["subject"] for each in answer["not_looked_at"]} <= {"buffers"}, "not every kernel shows them"
    assert len(answer["events"]) == len(page.events)
    status, answer = Ctl(daemon, user=65534).json("report")
    assert status == 1 and "packet filter" in {each["subject"] for each in answer["not_looked_at"]}, "anybody may look"


def test_what_hinders_clients_is_among_the_checks(net, daemon):
    net.gateway.set("net/ipv4/ip_forward", 0)
    net.gateway.run("nft add table inet filter")
    net.gateway.run("nft add chain inet filter input { type filter hook input priority 0 ; }")
    net.gateway.run("nft add rule inet filter input iifname a udp dport 5353 counter drop")
    status, answer = Ctl(daemon).json("report")
    failed = [(check["result"], check["subject"]) for check in answer["checks"] if check["result"] != "well"]
    assert (status, failed) == (2, [("error", "a"), ("warning", "forwarding")])
    text = page_of(Ctl(daemon))[1].text
    assert re.search(r"2 / \d+ checks failed", " ".join(text.split()))
    assert "dropped by chain input of table inet filter" in text


def test_without_a_daemon_and_without_a_state_file(scene, net, daemon):
    ctl = Ctl(daemon)
    scene.device(net["a"]).publish("Visitor")
    wait_until(lambda: any(row[1] == "Visitor" for row in page_of(ctl)[1].events), 10, "an event")
    daemon.send(signal.SIGKILL)
    wait_until(lambda: daemon.daemon_status is not None, 10, "its end")
    status, page = page_of(ctl)
    assert (status, page.rows) == (3, {})
    assert "The daemon is not running: it was killed or crashed" in page.text
    assert "Visitor" in {row[1] for row in page.events}
    assert ctl.json("report")[1]["services"] == []
    daemon.box.path("/run/mdnsproxy/state").unlink()
    status, page = page_of(ctl)
    assert (status, page.rows, page.events) == (4, {}, [])
    assert "There is no state file /run/mdnsproxy/state" in page.text
    complaint = "mdnsproxyctl: /nowhere/report.html: No such file or directory\n"
    assert ctl("report", "-o", "/nowhere/report.html") == (2, complaint)
