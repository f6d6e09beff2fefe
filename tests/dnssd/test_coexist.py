# SPDX-License-Identifier: MIT
"""Other implementations: python3-zeroconf on the other side of the link, avahi-daemon on the same machine."""

import textwrap

import pytest

import driver as d
from testbed import dns, wait_until
from testbed.avahi import Avahi, service_file


def zeroconf(link, host, program):
    """Runs a Python program with zeroconf on a host."""
    return link.program(*host.command("/usr/bin/python3", "-u", "-c", textwrap.dedent(program)))


PUBLISH = """
    import socket, sys
    from zeroconf import ServiceInfo, Zeroconf
    zc = Zeroconf(interfaces=["10.9.0.1"])
    info = ServiceInfo("_ipp._tcp.local.", "Büro im Stock._ipp._tcp.local.", port=631, server="printer.local.",
                       addresses=[socket.inet_aton("10.9.0.77")], properties={"rp": "print"})
    zc.register_service(info)
    print("up")
    sys.stdin.readline()
    info.addresses = [socket.inet_aton("10.9.0.78")]
    zc.update_service(info)
    print("changed")
    sys.stdin.readline()
    zc.unregister_service(info)
    zc.close()
    print("down")
"""

BROWSE = """
    import sys
    from zeroconf import ServiceBrowser, Zeroconf
    class Listener:
        def add_service(self, zc, kind, name):
            info = zc.get_service_info(kind, name, 5000)
            print("add", name, info and (info.server, info.port, info.properties, info.parsed_addresses()))
        def update_service(self, zc, kind, name):
            pass
        def remove_service(self, zc, kind, name):
            print("remove", name)
    zc = Zeroconf(interfaces=["10.9.0.1"])
    ServiceBrowser(zc, "_ipp._tcp.local.", Listener())
    print("up")
    sys.stdin.readline()
"""


def test_a_service_of_another_implementation_is_found_resolved_followed_and_lost(link):
    looker = link.looker()
    looker.browse("br", link.far_index, "_ipp._tcp")
    other = zeroconf(link, link.near, PUBLISH)
    wait_until(lambda: "up" in other.lines, 20, "zeroconf to be up")
    reply = looker.wait("br")[0]
    assert d.text_of(reply.fields[0]) == "Büro im Stock"
    looker.resolve("rs", link.far_index, "Büro im Stock", "_ipp._tcp.")
    resolved = looker.wait("rs")[0]
    assert d.text_of(resolved.fields[0]) == "Büro\\032im\\032Stock._ipp._tcp.local."
    assert d.text_of(resolved.fields[1]) == "printer.local." and bytes.fromhex(resolved.fields[3]) == b"\x08rp=print"
    looker.query("q", link.far_index, "printer.local.", d.A)
    looker.wait("q")
    other.tell("change")
    looker.wait("q", 2)
    assert [reply.fields[3] for reply in looker.of("q")] == ["0a09004d", "0a09004e"]
    other.tell("end")
    assert not d.add_flag(looker.wait("br", 2)[1])


def test_another_implementation_finds_resolves_and_loses_our_service(link):
    publisher = link.looker()
    other = zeroconf(link, link.near, BROWSE)
    wait_until(lambda: "up" in other.lines, 20, "zeroconf to be up")
    publisher.record("r", link.far_index, "printer.local.", d.A, bytes([10, 9, 0, 77]))
    publisher.record("r6", link.far_index, "printer.local.", d.AAAA, bytes([0xFD, 9] + [0] * 13 + [77]))
    publisher.register("reg", link.far_index, "My Printer", txt=dns.txt_data(["rp=print"]))
    wait_until(lambda: any(line.startswith("add My Printer._ipp._tcp.local.") for line in other.lines), 20, "add")
    line = next(line for line in other.lines if line.startswith("add"))
    assert "printer.local." in line and "631" in line and "10.9.0.77" in line and "fd09::4d" in line and "print" in line
    publisher.end()
    wait_until(lambda: "remove My Printer._ipp._tcp.local." in other.lines, d.DEADLINE, "remove")


@pytest.fixture
def avahi_daemon(link):
    """avahi-daemon on the near host, with services of its own."""
    made = Avahi(link.near, [service_file("Gateway Web", _http=80, _ipp=81)],
                 server={"host-name": "gateway", "allow-interfaces": "eth0"})
    made.start()
    yield made
    print(made.logs())
    made.close()


def test_avahi_daemon_on_the_same_machine_goes_on_working_and_is_found(link, avahi_daemon):
    near, far = link.publisher(), link.looker()
    near.browse("br", link.near_index, "_http._tcp")
    far.browse("br", link.far_index, "_http._tcp")
    assert d.text_of(near.wait("br", deadline=30)[0].fields[0]) == "Gateway Web"
    assert d.text_of(far.wait("br", deadline=30)[0].fields[0]) == "Gateway Web"
    near.register("reg", link.near_index, "Ours", regtype="_http._tcp", host="ours.local")
    far.wait("br", 2)
    far.resolve("rs", link.far_index, "Gateway Web", "_http._tcp")
    assert d.text_of(far.wait("rs")[0].fields[1]) == "gateway.local."
    assert avahi_daemon.program.status is None


def test_a_name_that_avahi_daemon_has_is_not_taken_from_it(link, avahi_daemon):
    far, near = link.looker(), link.publisher()
    far.browse("br", link.far_index, "_ipp._tcp")
    far.resolve("rs", link.far_index, "Gateway Web", "_ipp._tcp")
    far.wait("rs", deadline=30)  # established, that is; its pointer is answered for earlier
    near.register("reg", link.near_index, "Gateway Web", host="ours.local")
    assert d.text_of(near.wait("reg")[0].fields[0]) == "Gateway Web (2)"
    far.wait("br", 2)
    assert [d.text_of(reply.fields[0]) for reply in far.of("br") if d.add_flag(reply)] == ["Gateway Web",
                                                                                           "Gateway Web (2)"]
