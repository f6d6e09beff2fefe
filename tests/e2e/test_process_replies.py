# SPDX-License-Identifier: MIT
"""One service instance through the whole process, reply by reply.

    [ scripted libdns_sd.so.1 ]---- replies ---->[ mdnsproxy: event loop, callbacks ]---- calls ---->[ the script's list
    ]
"""

import re

import pytest
from testbed import dns, rule, wait_until
from testbed.script import ADD, NAME_CONFLICT, UNKNOWN

TEXT, NUMBER = "(list)", "2147483647"
FULL_NAME = "Office\\032Printer._ipp._tcp.local."
HOST = "printer.local."
A, PTR, AAAA = 1, 12, 28
VENDOR_ENTRY = b"\rvender=Zenmor".hex()
FENCED = "[fencing AirPrint]\nwireless_hop = 1\n"


def found(daemon, kind="_ipp._tcp."):
    """The rule's browse finds the printer, and it is resolved."""
    script = daemon.script
    script.says("browse", 1, ADD, 2, 0, "Office Printer", kind, "local.")
    script.wait_for_call("DNSServiceResolve")
    script.says("resolve", 1, ADD, 2, 0, FULL_NAME, HOST, 631, dns.txt_data(["rp=ipp"]).hex())
    script.wait_for_call("DNSServiceQueryRecord", 2)


def answered(daemon, address, query=1, kind=A):
    packed = dns.encode_data(dns.Record((), dns.A if kind == A else dns.AAAA, address)).hex()
    daemon.script.says("query", query, ADD, 2, 0, HOST, kind, packed, 120)


def argument(call, name):
    return re.search(rf" {name}=(\S*)", call)[1]


@pytest.fixture
def daemon(scene):
    return scene.scripted_daemon(rule("_ipp._tcp", "a", "b")).start_and_wait()


def test_an_instance_from_its_browse_to_its_registration(daemon):
    script = daemon.script
    found(daemon)
    answered(daemon, "10.1.0.2")
    register = script.wait_for_call("DNSServiceRegister")
    record = script.calls_of("DNSServiceRegisterRecord")[0]
    browse, resolve, *queries = (script.calls_of(name)[at] for name, at in (
        ("DNSServiceBrowse", 0), ("DNSServiceResolve", 0), ("DNSServiceQueryRecord", 0), ("DNSServiceQueryRecord", 1)))
    assert [argument(call, "flags") for call in (browse, resolve, *queries)] == ["0x4000"] * 2 + ["0x4500"] * 2
    assert [argument(call, "rrtype") for call in queries] == ["1", "28"]
    assert " name=Office Printer regtype=_ipp._tcp. domain=local. " in resolve
    assert re.search(r" connection-2 flags=0x10 interface=\d+ fullname=printer\.local\. rrtype=1 rrclass=1 "
                     r"rdata=0a010002 ttl=0 ", record)
    assert re.search(r" connection-1 flags=0x4010 interface=\d+ name=Office Printer regtype=_ipp\._tcp domain=local "
                     rf"host=printer\.local\. port=631 txt={VENDOR_ENTRY}0672703d697070 ", register)
    assert argument(register, "interface") == argument(record, "interface") != argument(browse, "interface")


def test_it_is_taken_apart_in_order_when_it_goes(daemon):
    script = daemon.script
    found(daemon)
    answered(daemon, "10.1.0.2")
    answered(daemon, "fd00:1::2", query=2, kind=AAAA)
    script.wait_for_call("DNSServiceRegisterRecord", 2)
    script.says("browse", 1, 0, 2, 0, "Office Printer", "_ipp._tcp.", "local.")
    wait_until(lambda: any("register-1" in call for call in script.calls_of("DNSServiceRefDeallocate")), 3,
               script.calls)
    done = [call.split(" ")[2:4] for call in script.calls
            if call.startswith(("DNSServiceRemoveRecord", "DNSServiceRefDeallocate"))]
    assert done == [["resolve-1", "->"], ["connection-2", "record-1"], ["connection-2", "record-2"], ["query-1", "->"],
                    ["query-2", "->"], ["register-1", "->"]]


def test_a_changed_address_is_an_update(daemon):
    found(daemon)
    answered(daemon, "10.1.0.2")
    daemon.script.wait_for_call("DNSServiceRegister")
    answered(daemon, "10.1.0.3")
    update = daemon.script.wait_for_call("DNSServiceUpdateRecord")
    assert argument(update, "rdata") == "0a010003" and "connection-2 record-1" in update
    for function in ("DNSServiceRegister", "DNSServiceRegisterRecord"):
        assert len(daemon.script.calls_of(function)) == 1


def test_a_conflict_over_a_record_ends_the_process(daemon):
    found(daemon)
    answered(daemon, "10.1.0.2")
    daemon.script.wait_for_call("DNSServiceRegister")
    daemon.script.says("record", 1, 0, NAME_CONFLICT, connection=2)
    assert daemon.wait_for_exit() == 600 % 256
    assert daemon.status_file == (f"600\nERROR: 1301171622: callback_ServiceRegisterRecord(): Name in use, please "
                                  f"choose another: "
                                  f"name = {TEXT}, errorCode = {NUMBER}\n")
    assert daemon.pid_file is None


def test_any_other_error_of_a_record_ends_the_process(daemon):
    found(daemon)
    answered(daemon, "10.1.0.2")
    daemon.script.wait_for_call("DNSServiceRegister")
    daemon.script.says("record", 1, 0, UNKNOWN, connection=2)
    assert daemon.wait_for_exit() == 600 % 256
    assert daemon.status_file == f"600\ncallback_ServiceRegisterRecord(): Error {NUMBER} for name = {TEXT}\n"


def test_a_conflict_over_the_service_does_not(daemon):
    found(daemon)
    answered(daemon, "10.1.0.2")
    daemon.script.wait_for_call("DNSServiceRegister")
    daemon.script.says("register", 1, 0, NAME_CONFLICT, "Office Printer", "_ipp._tcp.", "local.")
    answered(daemon, "10.1.0.3")
    daemon.script.wait_for_call("DNSServiceUpdateRecord")
    assert daemon.status_code == 0


def test_a_resolve_that_cannot_start_ends_the_process(daemon):
    daemon.script.fails("DNSServiceResolve", 1, UNKNOWN)
    daemon.script.says("browse", 1, ADD, 2, 0, "Office Printer", "_ipp._tcp.", "local.")
    assert daemon.wait_for_exit() == 600 % 256
    assert daemon.status_file == (f"600\nERROR 1301301638: INTERNAL ERROR:  DNSServiceResolve() call failed: "
                                  f"{NUMBER}, CRITICAL "
                                  "ERROR, exiting.\n")


def test_the_shared_connection_is_served_first_and_the_other_in_a_later_pass(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b"))
    for name in ("First", "Second", "Third"):
        daemon.script.says("browse", 1, ADD, 2, 0, name, "_ipp._tcp.", "local.")
    daemon.script.says("return", UNKNOWN, connection=2)
    daemon.start()
    assert daemon.wait_for_exit() == 0
    assert len(daemon.script.calls_of("DNSServiceResolve")) == 3


def test_registration_replies_are_stamped_with_the_time_on_standard_output(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b")).start_and_wait("-d")
    found(daemon)
    answered(daemon, "10.1.0.2")
    daemon.script.wait_for_call("DNSServiceRegister")
    daemon.script.says("register", 1, ADD, 0, "Office Printer", "_ipp._tcp.", "local.")
    wait_until(lambda: re.search(r"^[ \d]\d:\d\d:\d\d\.\d{3}  mdnsproxy\.c:\d+:callback_ServiceRegister\(\): Got a "
                                 r"reply for service "
                                 r"Office Printer\._ipp\._tcp\. local\.: $", daemon.debug_stream, re.MULTILINE),
               3, lambda: daemon.debug_stream[-3000:])


@pytest.mark.parametrize("settings, record, service", [
    (FENCED, "0x8000010", "0x8004010"),
    (FENCED.replace("= 1", "= 0"), "0x80000010", "0x80004010"),
    (FENCED.replace("= 1", "= 2"), "0x10", "0x4010"),
    ("[fencing _ipp._udp]\nwireless_hop = 1\n", "0x10", "0x4010")], ids=["hop 1", "hop 0", "hop 2", "another type"])
def test_fencing_marks_the_registrations(scene, settings, record, service):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b"), settings=settings).start_and_wait()
    found(daemon)
    answered(daemon, "10.1.0.2")
    assert argument(daemon.script.wait_for_call("DNSServiceRegister"), "flags") == service
    assert argument(daemon.script.calls_of("DNSServiceRegisterRecord")[0], "flags") == record


def test_a_change_of_the_fencing_settings_applies_to_the_next_answer(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b")).start_and_wait()
    found(daemon)
    answered(daemon, "10.1.0.2")
    daemon.script.wait_for_call("DNSServiceRegister")
    daemon.box.write("/etc/mdnsproxy.conf", FENCED)
    answered(daemon, "fd00:1::2", query=2, kind=AAAA)
    flags = [argument(daemon.script.wait_for_call("DNSServiceRegisterRecord", number), "flags") for number in (1, 2)]
    assert flags == ["0x10", "0x8000010"]
