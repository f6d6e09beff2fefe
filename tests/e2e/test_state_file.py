# SPDX-License-Identifier: MIT
"""The state file beside a daemon that does everything else as it does without one, and mdnsproxyctl over it.

      link a               gateway                link b
    [ device ]----- a [ mdnsproxy ] b -----[ client ]
     10.1.0.2                                10.2.0.2
"""

import json
import os
import pathlib
import re
import signal

import pytest
from testbed import Ctl, Network, addresses_on, dns, rule, wait_until
from testbed.script import ADD

STATE_FILE = "/run/mdnsproxy/state"
CONTROLS = 'quote " tick ` $(reboot) <script>\n\x1b[31m\u202e\\'
JAPANESE = "プリンタ" * 5 + "プ"
VENDOR_ENTRY = "vender=Zenmor"
RULES = ("<!-- office -->\n", rule("_ipp._tcp", "a", "b"))  # the rule stands on the second line


def known(ctl, name):
    """The service of that name as the state file has it, or None."""
    return next((each for each in ctl.json("services")[1]["services"] if each["service"] == name), None)


def wait_for_state(ctl, name, state, reason=None):
    def reached():
        service = known(ctl, name)
        return service if service and (service["state"], service["reason"]) == (state, reason) else None
    return wait_until(reached, 10, lambda: f"{name} {state} {reason}; {ctl.json('services')}")


# --- what is in it


def test_a_service_from_its_discovery_to_its_end(scene, net, ear, daemon):
    ctl = Ctl(daemon)
    assert ctl.json("services")[1]["services"] == []
    device = scene.device(net["a"])
    service = device.publish("Office Printer", port=6310)
    ear.wait_for(service.name, dns.SRV, within=5)
    found = wait_for_state(ctl, "Office Printer", "forwarded")
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", found.pop("since"))
    assert found == {"service": "Office Printer", "type": "_ipp._tcp", "from": "a", "to": "b", "rule_line": 2,
                     "state": "forwarded", "reason": None, "name_there": "Office Printer", "host": "printer.local.",
                     "addresses": ["10.1.0.2", "fd00:1::2"], "port": 6310}
    status, answer = ctl.json("status")
    assert (status, answer["schema"], answer["services"]) == (0, 1, {"forwarded": 1, "waiting": 0, "refused": 0})
    assert answer["daemon"]["running"] and answer["daemon"]["pid"] == daemon.pid
    assert ctl.json("rules")[1]["rules"] == [{"rule_line": 2, "from": "a", "to": "b", "type": "_ipp._tcp",
                                              "forwarded": 1, "waiting": 0, "refused": 0}]
    device.withdraw(service)
    wait_until(lambda: known(ctl, "Office Printer") is None, 5, "its end")


@pytest.mark.parametrize("addresses, txt, state, reason", [
    ([], [], "waiting", "no_address"),
    (["169.254.7.7", "fe80::7"], [], "refused", "link_local_only"),
    (["10.1.0.2"], [VENDOR_ENTRY], "refused", "through_gateway")])
def test_one_that_is_not_forwarded_says_why(scene, net, daemon, addresses, txt, state, reason):
    ctl = Ctl(daemon)
    scene.device(net["a"], addresses=addresses).publish("Ghost", txt=txt)
    wait_for_state(ctl, "Ghost", state, reason)
    status, text = ctl("services")
    assert (status, state in text, "Ghost" in text) == (1, True, True)
    assert "Ghost" in ctl("services", "--state", state)[1]
    assert ctl("services", "--state", "forwarded")[1] == "There is no such service.\n"


def test_links_tell_what_has_passed_and_who_else_announces_the_same(scene, net, daemon):
    ctl = Ctl(daemon)
    second = scene.keep(Network.new_gateway("second gateway", (net["a"], net["b"])))
    scene.daemon(second, rule("_ipp._tcp", "a", "b"), name="second").start_and_wait()
    device = scene.device(net["a"])
    device.publish("Office Printer")
    theirs = set(addresses_on(second, "b"))

    def told():
        device.publish(f"Printer {len(device.services)}")  # figures are written when something passes
        link = next(each for each in ctl.json("links")[1]["links"] if each["name"] == "b")
        return link if theirs & set(link["gateways"] or ()) and link["received"] > 0 else None

    link = wait_until(told, 15, lambda: ctl.json("links"))
    assert (link["dropped"], link["ignored"], link["conflicts"]) == (0, 0, 0)
    status, text = ctl("links")
    assert status == 0 and re.search(r"^b: .* announces the same services: another gateway, or a reflector$", text,
                                     re.MULTILINE)
    assert re.search(rf'^mdnsproxy_link_sent_packets_total{{link="b"}} [1-9]', ctl("metrics")[1], re.MULTILINE)


def test_a_name_that_is_taken_there_is_shown_with_the_other_one(scene, net, daemon):
    ctl = Ctl(daemon)
    scene.device(net["b"], host="other").publish("Copier", port=9)
    scene.device(net["a"]).publish("Copier", port=631)
    wait_until(lambda: (known(ctl, "Copier") or {}).get("name_there") == "Copier (2)", 10, lambda: ctl.json("services"))
    assert 'there as "Copier (2)"' in ctl("services")[1]


def test_what_no_rule_names_and_what_is_private_is_not_in_it(scene, net, ear, daemon):
    device = scene.device(net["a"])
    service = device.publish("Office Printer", txt=["adminurl=topsecret"])
    device.publish("Unnamed", kind="_http._tcp")
    client = scene.device(net["b"], host="client")
    client.send(dns.Message(questions=[dns.Question(dns.labels("asked-for.local"), dns.A)]))
    ear.wait_for(service.name, dns.SRV, within=5)
    ctl = Ctl(daemon)
    wait_for_state(ctl, "Office Printer", "forwarded")
    content = daemon.box.path(STATE_FILE).read_bytes()
    assert b"Office Printer" in content
    for private in (b"topsecret", b"Unnamed", b"asked-for", bytes([10, 2, 0, 2])):
        assert private not in content


def test_names_of_strangers_are_data(scene, net, daemon):
    ctl = Ctl(daemon)
    device = scene.device(net["a"])
    for port, name in enumerate((CONTROLS, JAPANESE), start=1000):
        device.publish(name, port=port)
        wait_for_state(ctl, name, "forwarded")
    text = ctl("services")[1]
    assert r'quote " tick ` $(reboot) <script>\010\027[31m\226\128\174\\' in text
    assert not any(ord(c) < 32 and c != "\n" or c == "\u202e" for c in text)
    rows = [line for line in text.splitlines() if "_ipp._tcp" in line]
    wide = next(line for line in rows if line.startswith(JAPANESE))
    narrow = next(line for line in rows if line.startswith("quote"))
    assert wide.index("_ipp") + len(JAPANESE) == narrow.index("_ipp"), "each of these letters is two columns wide"
    assert "\u202e" not in ctl("services", "--json")[1]


def test_events_are_told_as_they_come(scene, net, daemon):
    ctl = Ctl(daemon)
    watch = ctl.start("watch", "--since", "60", "--json")
    device = scene.device(net["a"])
    service = device.publish("Visitor")

    def told():
        return [each["event"]["state"] for each in watch.answers() if each["event"]["service"] == "Visitor"]
    wait_until(lambda: "forwarded" in told(), 10, told)
    device.withdraw(service)
    wait_until(lambda: told()[-1] == "gone", 10, told)
    daemon.send(signal.SIGKILL)
    assert watch.exit_status(within=5) == 3


def test_metrics_for_a_collector(scene, net, daemon):
    ctl = Ctl(daemon)
    scene.device(net["a"], addresses=[]).publish("Ghost")
    wait_for_state(ctl, "Ghost", "waiting", "no_address")
    assert ctl("metrics", "-o", "/tmp/mdnsproxy.prom") == (0, "")
    text = daemon.box.read("/tmp/mdnsproxy.prom")
    assert 'mdnsproxy_services{state="waiting",reason="no_address"} 1\n' in text
    assert 'mdnsproxy_link_well{link="a"} 1\n' in text
    assert "Ghost" not in text
    names = set(re.findall(r"^(\w+?)(?:\{| )", re.sub(r"^#.*\n", "", text, flags=re.MULTILINE), re.MULTILINE))
    assert names == set(re.findall(r"^# TYPE (\w+) (?:gauge|counter)$", text, re.MULTILINE))
    assert names == set(re.findall(r"^# HELP (\w+) .+$", text, re.MULTILINE))


def processor_ticks(daemon):
    """Processor time that the daemon has used, in hundredths of a second."""
    fields = pathlib.Path(f"/proc/{daemon.pid}/stat").read_text(encoding="ascii").rpartition(")")[2].split()
    return int(fields[11]) + int(fields[12])


def test_a_thousand_readers_at_once_cost_the_daemon_nothing(daemon):
    ctl = Ctl(daemon)
    ctl("status")
    before = processor_ticks(daemon)
    readers = daemon.box.start("sh", "-c", """
        for reader in $(seq 1000); do
          /mnt/program/mdnsproxyctl status --json >/dev/null || touch /tmp/failed &
        done
        wait""")
    wait_until(lambda: readers.status is not None, 60, "the readers")
    assert not daemon.box.path("/tmp/failed").exists()
    assert processor_ticks(daemon) - before <= 1


# --- the daemon is not well


def test_a_link_that_was_made_anew_is_dead(scene, net, daemon):
    ctl = Ctl(daemon)
    assert ctl("links")[0] == 0
    net.gateway.run("ip link delete dev b")
    net["b"].attach(net.gateway, "b", host=1)
    status, answer = ctl.json("links", "b")
    assert (status, answer["links"][0]["dead"]) == (2, True)
    assert "DEAD" in answer["links"][0]["findings"][0]["text"]
    assert "systemctl restart mdnsproxy" in answer["links"][0]["findings"][0]["cure"]
    assert ctl("status")[1].startswith("error: b: DEAD")


def test_a_link_that_is_down_is_an_error(net, daemon):
    net.gateway.run("ip link set dev b down")
    status, text = Ctl(daemon)("status")
    assert status == 2
    assert text.startswith("error: b: it is down")


def test_a_stopped_daemon_is_told_from_an_idle_one(daemon):
    ctl = Ctl(daemon)
    assert ctl("status")[0] == 0
    daemon.send(signal.SIGSTOP)
    wait_until(lambda: ctl("status")[0] == 2, 5, "the process is stopped")
    assert "is stopped" in ctl("status")[1]
    daemon.send(signal.SIGCONT)
    wait_until(lambda: ctl("status")[0] == 0, 5, "the process goes on")


@pytest.mark.parametrize("number, words",
                         [(signal.SIGTERM, "it ended with status 10"), (signal.SIGKILL, "it was killed or crashed")])
def test_a_daemon_that_is_gone(daemon, number, words):
    daemon.send(number)
    wait_until(lambda: daemon.daemon_status is not None, 10, "its end")
    for command in ("status", "links", "rules", "services", "watch"):
        status, text = Ctl(daemon)(command)
        assert (status, words in text) == (3, True), text
    assert Ctl(daemon).json("status")[1]["daemon"]["running"] is False


def test_a_start_that_fails_is_told(scene, net):
    made = scene.daemon(net.gateway, rule("_ipp._tcp", "a", "nonsense"), state_file=True)
    made.start()
    made.wait_for_exit()
    assert "it ended with status 40" in Ctl(made)("status")[1]


@pytest.mark.parametrize("damage, words", [
    (lambda path: path.unlink(), "There is no state file"),
    (lambda path: os.truncate(path, 1000), "it is cut short"),
    (lambda path: path.write_bytes(b"MDNSPRXY" + b"\xff" * 100000), "layout 65535"),
    (lambda path: path.write_bytes(b"\n" * 100000), "it is no state file"),
    (lambda path: os.chown(path, 1234, 1234), "it belongs to user 1234"),
    (lambda path: (path.rename(f"{path}.old"), path.symlink_to("state.old")), "it is a symbolic link"),
    (lambda path: (path.unlink(), os.mkfifo(path)), "it is no regular file")])
def test_a_file_that_is_none_of_the_daemons(daemon, damage, words):
    damage(daemon.box.path(STATE_FILE))
    status, text = Ctl(daemon)("services")
    assert (status, words in text) == (4, True), text
    assert Ctl(daemon).json("services")[0] == 4


# --- the daemon beside it


def test_anybody_may_look(scene, net, daemon):
    scene.device(net["a"]).publish("Office Printer")
    wait_for_state(Ctl(daemon), "Office Printer", "forwarded")
    nobody = Ctl(daemon, user=65534)
    assert nobody("status")[0] == 0
    assert "Office Printer" in nobody("services")[1]


def test_another_place_by_the_settings(scene, net):
    made = scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b"), settings="[mdnsproxy]\nstate_file = /tmp/elsewhere\n")
    made.start_and_wait()
    assert made.box.path("/tmp/elsewhere").exists()
    assert Ctl(made)("status")[0] == 0
    assert Ctl(made)("--state-file", "/tmp/nothing", "status")[0] == 4


def life(scene, with_directory):
    """A daemon that has met one service, from its start to its end, with or without a place for the file; the lines
    that strace wrote of it."""
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b"), settings="[mdnsproxy]\nlog_level = enable\n",
                                   wrapper=["strace", "-f", "-o", "/tmp/calls"], state_file=with_directory)
    daemon.start_and_wait()
    script = daemon.script
    script.says("browse", 1, ADD, 2, 0, "Printer", "_ipp._tcp.", "local.")
    script.wait_for_call("DNSServiceResolve")
    script.says("resolve", 1, ADD, 2, 0, "Printer._ipp._tcp.local.", "printer.local.", 631, "")
    script.wait_for_call("DNSServiceQueryRecord", 2)
    script.says("query", 1, ADD, 2, 0, "printer.local.", dns.A, "0a010002", 120)
    script.wait_for_call("DNSServiceRegister")
    script.says("register", 1, ADD, 0, "Printer", "_ipp._tcp.", "local.")
    wait_until(lambda: daemon.box.logged("Name now registered and active"), 5, "the reply to the registration")
    script.says("browse", 1, 0, 2, 0, "Printer", "_ipp._tcp.", "local.")
    wait_until(lambda: daemon.box.logged("reg_service_ref="), 5, "the withdrawal")
    daemon.stop()
    return daemon, wait_until(lambda: finished(daemon), 5, "strace's last line")


def finished(daemon):
    lines = daemon.box.read("/tmp/calls").splitlines()
    return lines if lines[-1].endswith("+++ exited with 10 +++") else None


def messages(daemon):
    """The syslog, with one mark for each number, which may be an address or a process; sorted, since parent and child
    of the fork write side by side."""
    return sorted((line.priority, re.sub(r"0x[0-9a-f]+|-?\d+", "#", line.text)) for line in daemon.box.syslog)


def system_calls(lines):
    """Of the process that went on after the fork, each call's name and how it ended."""
    daemon = lines[-1].split()[0]
    return [match[1] for line in lines if (match := re.match(rf"{daemon} +(\w+)\(", line))]


def test_messages_and_system_calls_are_the_same_with_it_and_without(scene):
    with_it, traced_with_it = life(scene, True)
    without, traced_without = life(scene, False)
    assert with_it.box.path(STATE_FILE).exists() and not without.box.path("/run/mdnsproxy").exists()
    assert messages(with_it) == messages(without)
    assert with_it.status_file == without.status_file
    more, fewer = system_calls(traced_with_it), system_calls(traced_without)
    position = next(i for i, (one, other) in enumerate(zip(more, fewer)) if one != other)
    assert (more[position - 1], fewer[position - 1]) == ("openat", "openat"), "the attempt to make the file"
    making = ["fchmod", "fallocate", "fcntl", "mmap", "getpid", "rename"]
    assert more[position:position + len(making)] == making
    assert more[:position] + more[position + len(making):] == fewer


def test_a_second_reader_costs_the_daemon_nothing(daemon):
    ctl = Ctl(daemon)
    wait_until(lambda: ctl.json("status")[0] == 0, 5, "a healthy daemon")

    def processor_time():
        process = daemon.box.run("cat", f"/proc/{daemon.pid}/stat").rsplit(")", 1)[1].split()
        return int(process[11]) + int(process[12])
    before = processor_time()
    for _ in range(20):
        assert ctl.json("services") is not None
    assert processor_time() - before <= 1, "ticks of a hundredth of a second"
    assert json.loads(ctl("services", "--json")[1])["schema"] == 1
