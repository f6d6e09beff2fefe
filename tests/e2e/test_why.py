# SPDX-License-Identifier: MIT
"""`mdnsproxyctl why` names the true cause and the cure for what an operator meets.

      link a               gateway                link b
    [ device ]----- a [ mdnsproxy ] b -----[ client ]
     10.1.0.2             | c                10.2.0.2
                      [ device ]
                       10.3.0.2
"""

import contextlib
import select
import signal
import socket
import threading

import pytest
from testbed import Ctl, dns, rule, wait_until

STEPS = {"daemon", "link_from", "link_to", "heard", "rule", "limit", "gateway", "resolved", "address", "announced", "name_there",
         "found_there", "found_from", "route", "forwarding", "connect"}


@pytest.fixture
def net(scene):
    return scene.network("a", "b", "c")


@pytest.fixture
def daemon(scene, net):
    made = scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b"))
    made.box.path("/run/mdnsproxy").mkdir()
    return made.start_and_wait()


@pytest.fixture
def why(daemon):
    """why(...) is the answer, which is the same for root and for nobody: its steps are known ones, and the first failure is the
    verdict's."""
    users = [Ctl(daemon), Ctl(daemon, user=65534)]

    def asked(*arguments):
        (status, answer), (other_status, other) = (each.json("why", *arguments) for each in users)
        assert (status, answer["verdict"]) == (other_status, other["verdict"])
        assert [(step["step"], step["ok"]) for step in answer["steps"]] == [(step["step"], step["ok"]) for step in other["steps"]]
        failures = [step for step in answer["steps"] if step["ok"] is False]
        assert {step["step"] for step in answer["steps"]} <= STEPS
        assert [step["cure"] is None for step in answer["steps"]] == [step["ok"] is not False for step in answer["steps"]]
        first = failures[0] if failures else {"step": None, "cure": None}
        assert (answer["verdict"]["step"], answer["verdict"]["cure"]) == (first["step"], first["cure"])
        answer["status"] = status
        answer["failure"] = first
        return answer
    return asked


@contextlib.contextmanager
def listening(link, port):
    with link.ns.entered():
        server = socket.create_server(("::", port), family=socket.AF_INET6, dualstack_ipv6=True)
    with server:
        yield


def wait_for_state(daemon, name, state):
    wait_until(lambda: any(each["service"] == name and each["state"] == state
                           for each in Ctl(daemon).json("services")[1]["services"]), 10, lambda: Ctl(daemon).json("services"))


def step(answer, name):
    return next(each for each in answer["steps"] if each["step"] == name)


def test_a_service_that_works_is_well_at_every_step(scene, net, daemon, why):
    scene.device(net["a"]).publish("Air Printer", port=6310)
    wait_for_state(daemon, "Air Printer", "forwarded")
    with listening(net["a"], 6310):
        answer = why("Air Printer")
    assert answer["failure"]["step"] is None, answer
    assert (answer["status"], answer["verdict"]["state"]) == (0, "forwarded")
    assert answer["service"]["service"] == "Air Printer"
    assert step(answer, "found_there")["ok"] and step(answer, "connect")["ok"]
    assert {each["detail"].split()[0] for each in answer["steps"] if each["step"] == "route"} == {"10.1.0.2", "fd00:1::2"}


def test_a_type_is_its_service_that_is_worst_off(scene, net, daemon, why):
    scene.device(net["a"], host="one").publish("Well")
    scene.device(net["a"], host="two", addresses=["169.254.7.7"]).publish("Unwell")
    wait_for_state(daemon, "Well", "forwarded")
    wait_for_state(daemon, "Unwell", "refused")
    assert why("_ipp._tcp")["service"]["service"] == "Unwell"


def test_a_host_without_an_address(scene, net, daemon, why):
    scene.device(net["a"], host="lp1", addresses=[]).publish("Ghost Printer")
    wait_for_state(daemon, "Ghost Printer", "waiting")
    answer = why("Ghost Printer")
    assert (answer["status"], answer["verdict"]["state"], answer["verdict"]["reason"]) == (1, "waiting", "no_address")
    assert answer["failure"]["step"] == "address"
    assert "lp1.local. has said no address" in answer["failure"]["detail"]


def test_only_a_link_local_address(scene, net, daemon, why):
    scene.device(net["a"], addresses=["169.254.7.7"]).publish("LL Printer")
    wait_for_state(daemon, "LL Printer", "refused")
    answer = why("LL Printer")
    assert (answer["verdict"]["reason"], answer["failure"]["step"]) == ("link_local_only", "address")
    assert "169.254.7.7" in answer["failure"]["detail"] and "DHCP" in answer["failure"]["cure"]


def test_one_that_came_through_a_gateway(scene, net, daemon, why):
    scene.device(net["a"]).publish("Via Gateway", txt=["vender=Zenmor"])
    wait_for_state(daemon, "Via Gateway", "refused")
    answer = why("Via Gateway")
    assert (answer["verdict"]["reason"], answer["failure"]["step"]) == ("through_gateway", "gateway")


def test_a_type_that_no_rule_names(scene, net, daemon, why):  # pylint: disable=unused-argument
    scene.device(net["a"]).publish("Web Page", kind="_http._tcp")
    answer = why("Web Page")
    assert (answer["verdict"]["reason"], answer["failure"]["step"]) == ("not_named", "rule")
    assert answer["failure"]["detail"] == "no rule names _http._tcp from a"
    assert "add a rule for _http._tcp from a" in answer["failure"]["cure"]


@pytest.mark.parametrize("subject", ["Misplaced", "_ipp._tcp"])
def test_a_rule_for_the_wrong_interface(scene, net, daemon, why, subject):  # pylint: disable=unused-argument
    scene.device(net["c"]).publish("Misplaced")
    answer = why(subject)
    assert (answer["verdict"]["reason"], answer["failure"]["step"]) == ("not_named", "rule")
    assert answer["failure"]["detail"] == "line 1 looks for _ipp._tcp on a, and it is on c"
    assert 'if_from="c"' in answer["failure"]["cure"]


def test_nobody_has_it(net, daemon, why):  # pylint: disable=unused-argument
    answer = why("Nowhere")
    assert (answer["status"], answer["failure"]["step"], answer["service"]) == (1, "heard", None)
    assert answer["failure"]["detail"] == "nobody answers on a, b, c"


class ShyHost(threading.Thread):
    """Answers the questions of other ports than 5353 alone: as if the gateway's filter dropped what goes to that port."""

    def __init__(self, link, name):
        super().__init__(daemon=True)
        self.record = dns.Record(dns.labels((name,)) + dns.labels("_ipp._tcp.local"), dns.SRV,
                                 (0, 0, 631, dns.labels("shy.local")), dns.HOST_TTL, False)
        with link.ns.entered():
            self.opened = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            group = socket.inet_aton("224.0.0.251") + bytes(4) + socket.if_nametoindex(link.interface).to_bytes(4, "little")
            self.opened.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, group)
            self.opened.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            self.opened.bind(("", 5353))
        self.stop, self.stopped = socket.socketpair()
        self.start()

    def run(self):
        while select.select([self.opened, self.stopped], [], [])[0] == [self.opened]:
            packet, sender = self.opened.recvfrom(9000)
            message = dns.decode(packet)
            if sender[1] != 5353 and any(each.name == self.record.name for each in message.questions):
                self.opened.sendto(dns.encode(dns.Message(dns.RESPONSE, answers=[self.record])), sender)

    def close(self):
        self.stop.send(b".")
        self.join()
        for each in (self.opened, self.stop, self.stopped):
            each.close()


def test_a_daemon_that_does_not_hear_what_is_there(scene, net, daemon, why):  # pylint: disable=unused-argument
    scene.keep(ShyHost(net["a"], "Shy Printer"))
    answer = why("Shy Printer")
    assert answer["failure"]["step"] == "heard"
    assert "the daemon has heard nothing of it" in answer["failure"]["detail"]
    assert "UDP port 5353" in answer["failure"]["cure"]


def test_a_link_that_was_made_anew(scene, net, daemon, why):
    scene.device(net["a"]).publish("Air Printer")
    wait_for_state(daemon, "Air Printer", "forwarded")
    net.gateway.run("ip link delete dev b")
    net["b"].attach(net.gateway, "b", host=1)
    answer = why("Air Printer")
    assert (answer["status"], answer["failure"]["step"]) == (2, "link_to")
    assert "DEAD" in answer["failure"]["detail"] and "systemctl restart mdnsproxy" in answer["failure"]["cure"]


def test_a_router_that_does_not_forward(scene, net, daemon, why):
    scene.device(net["a"], addresses=["10.1.0.2"]).publish("Air Printer")
    wait_for_state(daemon, "Air Printer", "forwarded")
    net.gateway.set("net/ipv4/ip_forward", 0)
    with listening(net["a"], 631):
        answer = why("Air Printer")
    assert answer["failure"]["step"] == "forwarding"
    assert "sysctl -w net/ipv4/conf/b/forwarding=1" in answer["failure"]["cure"]


def test_a_host_to_which_there_is_no_route(scene, net, daemon, why):
    scene.device(net["a"], addresses=["192.0.2.77"]).publish("Stray")
    wait_for_state(daemon, "Stray", "forwarded")
    assert why("Stray")["failure"]["step"] == "route"


def test_a_port_that_nobody_listens_at(scene, net, daemon, why):
    scene.device(net["a"]).publish("Air Printer", port=6310)
    wait_for_state(daemon, "Air Printer", "forwarded")
    answer = why("Air Printer")
    assert (answer["failure"]["step"], answer["verdict"]["state"]) == ("connect", "forwarded")
    assert "is closed" in answer["failure"]["detail"]


def test_a_name_that_is_taken_there(scene, net, daemon, why):
    scene.device(net["b"], host="other").publish("Copier", port=9)
    scene.device(net["a"]).publish("Copier")
    wait_for_state(daemon, "Copier", "forwarded")
    answer = why("Copier", "a", "b")
    assert step(answer, "name_there")["detail"] == '"Copier (2)", since its own was taken'
    assert step(answer, "found_there")["ok"]


def test_without_the_network_nothing_is_asked_for(scene, net, daemon, why):
    ear = scene.ear(net["c"])
    before = len(ear.packets)
    answer = why("Nowhere", "--no-network")
    assert (answer["status"], answer["failure"]["step"], step(answer, "heard")["ok"]) == (1, None, None)
    assert len(ear.packets) == before


def test_the_text_shows_each_step_and_the_cure(scene, net, daemon):
    scene.device(net["a"], addresses=[]).publish('Quote " and\nline')
    wait_for_state(daemon, 'Quote " and\nline', "waiting")
    status, text = Ctl(daemon)("why", 'Quote " and\nline')
    lines = text.splitlines()
    assert (status, lines[0]) == (1, '"Quote \\" and\\010line": waiting')
    assert lines[-2].startswith("FAILS  address")
    assert lines[-1].startswith("cure: see whether the device has an address")


@pytest.mark.parametrize("remove, status", [(False, 3), (True, 4)])
def test_without_a_daemon_it_is_answered_from_outside(scene, net, daemon, remove, status):
    scene.device(net["c"]).publish("Misplaced")
    daemon.send(signal.SIGTERM)
    wait_until(lambda: daemon.daemon_status is not None, 10, "its end")
    if remove:
        daemon.box.path("/run/mdnsproxy/state").unlink()
    ended, answer = Ctl(daemon).json("why", "Misplaced")
    assert (ended, answer["verdict"]["step"]) == (status, "daemon")
    assert step(answer, "rule")["detail"] == "line 1 looks for _ipp._tcp on a, and it is on c"
