# SPDX-License-Identifier: MIT
"""`mdnsproxyctl what-if` foretells what a rules list would change, and changes nothing. One story, in the order of the
tests.

      link a               gateway                link b
    [ device ]----- a [ mdnsproxy ] b -----[ client ]
     10.1.0.2             | c                10.2.0.2
                      [ device ]
                       10.3.0.2
"""

import signal

import pytest
from testbed import Ctl, rule, rules_list, wait_until
from testbed.scene import Scene

FILE = "/tmp/new.xml"
OFFICE = ("Office Printer", "a", "b", "forwarded", None)


@pytest.fixture(scope="module")
def stage():
    made = Scene()
    yield made
    made.close()


@pytest.fixture(scope="module")
def network(stage):  # pylint: disable=redefined-outer-name
    return stage.network("a", "b", "c")


@pytest.fixture(scope="module")
def daemon(stage, network):  # pylint: disable=redefined-outer-name
    """With one printer that is forwarded, and some services on a link that it does not watch."""
    made = stage.daemon(network.gateway, rule("_ipp._tcp", "a", "b"), state_file=True)
    made.start_and_wait()
    stage.device(network["a"], host="office").publish("Office Printer", port=6310)
    cellar = stage.device(network["c"], host="cellar", addresses=["10.3.0.2"])
    cellar.publish("Cellar Printer", port=6311)
    cellar.publish("Cellar Page", kind="_http._tcp", port=80)
    stage.device(network["c"], host="lost", addresses=["169.254.7.7"]).publish("Lost Printer")
    stage.device(network["c"], host="far").publish("Far Printer", txt=["vender=Zenmor"])
    wait_until(lambda: services(made) == {OFFICE}, 10, lambda: services(made))
    return made


# pylint: disable=redefined-outer-name


@pytest.fixture(autouse=True)
def logs_on_failure(request, stage):
    request.node.scene = stage


def keys(listed):
    return {(each["service"], each["from"], each["to"], each["state"], each["reason"]) for each in listed}


def services(daemon):
    return keys(Ctl(daemon).json("services")[1]["services"])


def what_if(daemon, *rules, options=()):
    daemon.box.write(FILE, rules_list(*rules))
    return Ctl(daemon).json("what-if", FILE, *options)


def test_the_same_rules_change_nothing_and_ask_nobody(stage, network, daemon):
    ear = stage.ear(network["c"])
    before = len(ear.packets)
    daemon.box.write(FILE, rules_list(rule("_ipp._tcp", "a", "b")))
    assert Ctl(daemon)("what-if", FILE) == (0, "No service would come or go.\n")
    assert len(ear.packets) == before


def test_a_mistake_is_shown_with_its_line(daemon):
    daemon.box.write(FILE, "\n" + rule("_ipp._tcp", "a", "nowhere"))
    status, text = Ctl(daemon)("what-if", FILE)
    lines = text.splitlines()
    assert (status, lines[0].startswith(f"{FILE}:2:")) == (2, True), text
    assert "error: INTERFACE LOOKUP ERROR 111834" in lines[0]
    assert lines[1] == "With this file the daemon ends: nothing is forwarded."
    assert lines[3].startswith("goes    Office Printer  _ipp._tcp  a")


def test_without_the_network_it_says_whom_it_has_not_asked(daemon):
    rules = [rule("_ipp._tcp", "a", "b"), rule("_ipp._tcp", "c", "b")]
    status, answer = what_if(daemon, *rules, options=["--no-network"])
    assert (status, answer["come"], answer["go"]) == (1, [], [])
    assert answer["not_asked"] == [{"link": "c", "why": "--no-network"}]


def test_the_forecast_comes_true(daemon):
    rules = [rule("_ipp._tcp", "a", "c"), rule("_ipp._tcp", "c", "b")]
    status, answer = what_if(daemon, *rules)
    assert keys(answer["come"]) == {
        ("Office Printer", "a", "c", "forwarded", None), ("Cellar Printer", "c", "b", "forwarded", None),
        ("Lost Printer", "c", "b", "refused", "link_local_only"),
        ("Far Printer", "c", "b", "refused", "through_gateway")}
    assert keys(answer["go"]) == {OFFICE}
    assert (status, answer["schema"], answer["findings"], answer["not_asked"]) == (1, 1, [], [])
    cellar = next(each for each in answer["come"] if each["service"] == "Cellar Printer")
    assert cellar == {"service": "Cellar Printer", "type": "_ipp._tcp", "from": "c", "to": "b", "rule_line": 2,
                      "state": "forwarded", "reason": None, "name_there": None, "host": "cellar.local.",
                      "addresses": ["10.3.0.2"], "port": 6311, "since": None}
    assert services(daemon) == {OFFICE}, "nothing has changed"
    daemon.stop(signal.SIGTERM)
    daemon.box.write("/tmp/mdnsproxyrule-list.xml", rules_list(*rules))
    daemon.box.path("/tmp/mdnsproxy.out").unlink()
    daemon.start()
    wait_until(lambda: daemon.status_code == 0, 10, daemon.logs)
    wait_until(lambda: services(daemon) >= keys(answer["come"]), 10, lambda: (services(daemon), answer["come"]))
    assert OFFICE[:3] not in {each[:3] for each in services(daemon)}


@pytest.mark.parametrize("remove, status", [(False, 3), (True, 4)])
def test_without_a_daemon_the_links_are_asked(daemon, remove, status):
    if remove:
        daemon.box.path("/run/mdnsproxy/state").unlink()
    else:
        daemon.send(signal.SIGTERM)
        wait_until(lambda: not Ctl(daemon).json("status")[1]["daemon"]["running"], 10, daemon.logs)
    ended, answer = what_if(daemon, rule("_http._tcp", "c", "b"), rule("_ipp._tcp", "a", "b"))
    assert ended == status and not answer["daemon"]["running"]
    assert keys(answer["come"]) == {("Cellar Page", "c", "b", "forwarded", None), OFFICE}
    assert answer["go"] == []
