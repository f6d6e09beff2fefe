# SPDX-License-Identifier: MIT
"""`mdnsproxyctl why` names the true cause and the cure for what an operator meets.

      link a               gateway                link b
    [ device ]----- a [ mdnsproxy ] b -----[ client ]
     10.1.0.2             | c                10.2.0.2
                      [ device ]
                       10.3.0.2
"""

import contextlib
import json
import signal
import socket

import pytest
from testbed import Ctl, Network, rule, wait_until
from testbed.avahi import Avahi
from testbed.script import ADD

LINKS = "a", "b", "c"
STEPS = {"daemon", "link_from", "link_to", "heard", "rule", "limit", "gateway", "resolved", "address", "announced",
         "name_there", "found_there", "found_from", "reflector", "route", "forwarding", "filter", "connect"}


@pytest.fixture
def why(daemon):
    """why(...) is root's answer: its steps are known ones, and the first failure is the verdict's. Nobody's is the
    same, but for the packet filter, at which only root may look; `others_see` is nobody's first failure, when that is
    another one."""
    users = [Ctl(daemon), Ctl(daemon, user=65534)]

    def asked(*arguments, others_see=True):
        runs = [each.start("why", *arguments, "--json") for each in users]
        (status, answer), (other_status, other) = (each.answer() for each in runs)
        hidden = [step for step in other["steps"] if step["step"] == "filter"]
        assert all(step["ok"] is None and "only root" in step["detail"] and "sudo" in step["detail"] for step in hidden)
        if others_see is True:
            assert (status, answer["verdict"]) == (other_status, other["verdict"])
            assert seen(answer) == seen(other)
        else:
            assert other["verdict"]["step"] == others_see
            assert len(hidden) >= 1
        failures = [step for step in answer["steps"] if step["ok"] is False]
        assert {step["step"] for step in answer["steps"]} <= STEPS
        assert [step["cure"] is None for step in answer["steps"]] == [step["ok"] is not False
                                                                      for step in answer["steps"]]
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
                           for each in Ctl(daemon).json("services")[1]["services"]), 10,
               lambda: Ctl(daemon).json("services"))


def seen(answer):
    return [(each["step"], each["ok"]) for each in answer["steps"] if each["step"] != "filter"]


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
    assert {each["detail"].split()[0] for each in answer["steps"] if each["step"] == "route"} == {"10.1.0.2",
                                                                                                  "fd00:1::2"}


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
    assert f"forwarded it to a: 10.1.0.2 ({hardware_address(net['a'].ns, 'br0')})" in answer["failure"]["detail"]


def hardware_address(namespace, interface):
    return json.loads(namespace.run(f"ip -j link show dev {interface}"))[0]["address"]


def test_a_type_that_no_rule_names(scene, net, daemon, why):  # pylint: disable=unused-argument
    scene.device(net["a"]).publish("Web Page", kind="_http._tcp")
    answer = why("Web Page")
    assert (answer["verdict"]["reason"], answer["failure"]["step"]) == ("not_named", "rule")
    assert answer["failure"]["detail"] == "no rule names _http._tcp from a"
    assert "add a rule for _http._tcp from a" in answer["failure"]["cure"]


@pytest.mark.parametrize("subject, detail", [
    ("Misplaced", "line 1 looks for _ipp._tcp on a, and it is on c"),
    ("_ipp._tcp", "line 1 looks for _ipp._tcp on a, where nothing of it is heard; c has 2 of them")])
def test_a_rule_for_the_wrong_interface(scene, net, daemon, why, subject, detail):  # pylint: disable=unused-argument
    device = scene.device(net["c"])
    device.publish("Misplaced")
    device.publish("Another")
    answer = why(subject)
    assert (answer["verdict"]["reason"], answer["failure"]["step"]) == ("not_named", "rule")
    assert answer["failure"]["detail"] == detail
    assert 'if_from="c"' in answer["failure"]["cure"]


def test_nobody_has_it(net, daemon, why):  # pylint: disable=unused-argument
    answer = why("Nowhere")
    assert (answer["status"], answer["failure"]["step"], answer["service"]) == (1, "heard", None)
    assert answer["failure"]["detail"] == "nobody answers on a, b, c"


def test_a_daemon_that_does_not_hear_what_is_there(scene, net, daemon, why):  # pylint: disable=unused-argument
    # As if the gateway's filter dropped what goes to the port of multicast DNS.
    scene.device(net["a"], host="shy", is_shy=True).publish("Shy Printer")
    answer = why("Shy Printer")
    assert answer["failure"]["step"] == "heard"
    assert "the daemon has heard nothing of it" in answer["failure"]["detail"]
    assert "UDP port 5353" in answer["failure"]["cure"]


def test_a_packet_filter_that_drops_multicast_dns(scene, net, daemon, why):  # pylint: disable=unused-argument
    nft(net, "add rule inet filter input iifname a udp dport 5353 counter drop")
    scene.device(net["a"]).publish("Air Printer")
    answer = why("_ipp._tcp", others_see="heard")
    assert (answer["status"], answer["failure"]["step"]) == (1, "heard")
    assert "nft counts " in answer["failure"]["detail"]
    assert "packets dropped by chain input of table inet filter (the rule with handle" in answer["failure"]["detail"]
    assert 'nft insert rule inet filter input iifname "a" udp dport 5353 accept' in answer["failure"]["cure"]
    net.gateway.run(answer["failure"]["cure"].split(",")[0].replace('"', ""))
    scene.device(net["a"], host="other").publish("Heard Printer")
    wait_for_state(daemon, "Heard Printer", "forwarded")


def test_a_packet_filter_that_drops_all_it_does_not_know(scene, net, daemon, why):  # pylint: disable=unused-argument
    scene.device(net["a"])
    nft(net, "chain inet filter input { policy drop ; }",
        "add rule inet filter input ct state established,related accept",
        "add rule inet filter input tcp dport 22 accept")
    answer = why("Air Printer", others_see="heard")
    assert answer["failure"]["step"] == "heard"
    assert answer["failure"]["detail"] == ("a DEAF: asked 4 times, heard nothing from anybody; packets to UDP port "
                                           "5353 are dropped "
                                           "by chain input of table inet filter (its policy)")


def nft(net, *commands):
    """Runs commands of nft(8) on the gateway, in a table that lets everything pass otherwise."""
    chains = [f"add chain inet filter {hook} {{ type filter hook {hook} priority 0 ; }}"
              for hook in ("input", "forward")]
    for command in ["add table inet filter", *chains, *commands]:
        net.gateway.run(f"nft {command}")


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


def test_a_packet_filter_between_the_links(scene, net, daemon, why):
    scene.device(net["a"], addresses=["10.1.0.2"]).publish("Air Printer")
    wait_for_state(daemon, "Air Printer", "forwarded")
    with listening(net["a"], 631):
        nft(net, "chain inet filter forward { policy drop ; }")
        answer = why("Air Printer", others_see=None)
        assert answer["failure"]["step"] == "filter"
        assert answer["failure"]["detail"] == ("10.1.0.2 port 631 from b: a client's packets are dropped by chain "
                                               "forward of table "
                                               "inet filter (its policy)")
        cure = 'nft insert rule inet filter forward iifname "b" oifname "a" ip daddr 10.1.0.2 tcp dport 631 accept'
        assert answer["failure"]["cure"].startswith(cure)
        net.gateway.run(cure.replace('"', ""))
        answer = why("Air Printer", others_see=None)
        assert "the answers are dropped" in answer["failure"]["detail"]
        net.gateway.run(answer["failure"]["cure"].split(", ")[0].replace('"', ""))
        assert why("Air Printer")["failure"]["step"] is None


def test_a_reflector_beside_the_gateway(scene, net, daemon, why):
    """What it repeats of link a takes the name on link b, and what it repeats of link b is found on link a."""
    reflector = start_reflector(scene, net)
    scene.device(net["a"]).publish("Air Printer")
    wait_for_state(daemon, "Air Printer (2)", "refused")
    wait_for_state(daemon, "Air Printer", "forwarded")
    text = f"10.2.0.9 ({hardware_address(reflector, 'b')}) repeats packets of a on b: a reflector"
    with listening(net["a"], 631):
        answer = why("Air Printer")
    assert (answer["failure"]["step"], answer["failure"]["detail"]) == ("reflector", text)
    assert "switch it off" in answer["failure"]["cure"]
    assert step(answer, "connect")["ok"], "a reflector does not end the way"
    answer = why("Air Printer (2)")
    assert (answer["failure"]["step"], answer["failure"]["detail"]) == (
        "gateway", f"10.1.0.9 ({hardware_address(reflector, 'a')}) repeats on a what this machine announces on b: a "
                   f"reflector")
    for user in (0, 65534):
        status, links = Ctl(daemon, user).json("links", "b")
        assert (status, [each["text"] for each in links["links"][0]["findings"]]) == (1, [text])
    assert ("b", text) in [(each["subject"], each["text"]) for each in Ctl(daemon).json("doctor")[1]["findings"]]


def start_reflector(scene, net):
    """avahi-daemon in a namespace of its own between the links a and b, where it is host 9."""
    namespace = scene.keep(Network.new_gateway("reflector", [net["a"], net["b"]], host=9))
    scene.keep(Avahi(namespace, reflector={"enable-reflector": "yes"})).start()
    return namespace


def test_one_too_many(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b"), state_file=True)
    for link, address in (("a", "10.1.0.1/24"), ("b", "10.2.0.1/24")):
        daemon.box.run("ip", "addr", "add", address, "dev", link)
        daemon.box.run("ip", "link", "set", "dev", link, "up")
    daemon.start_and_wait()
    for number in range(2002):
        wait_until(lambda number=number: browse_reply(daemon, f"Device {number}"), 10, "room for a reply")
    ctl = Ctl(daemon)
    wait_until(lambda: ctl("services", "Device 2001")[0] == 1 and "refused" in ctl("services", "Device 2001")[1], 20,
               "the last one")
    for user in (0, 65534):
        status, answer = Ctl(daemon, user=user).json("why", "Device 2001", "--no-network")
        assert (status, answer["verdict"]["reason"], answer["verdict"]["step"]) == (1, "limit", "limit")
        assert step(answer, "limit")["detail"] == "there were 2001 services already"
        assert "use fewer or narrower rules" in answer["verdict"]["cure"]
    status, answer = ctl.json("status")
    assert (status, answer["findings"][0]["text"]) == (2, "the limit of 2001 services is reached; refused: 1")


def browse_reply(daemon, name):
    """Whether there was room for it."""
    try:
        daemon.script.says("browse", 1, ADD, 2, 0, name, "_ipp._tcp.", "local.")
    except BlockingIOError:
        return False
    return True


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
