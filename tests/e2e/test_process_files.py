# SPDX-License-Identifier: MIT
"""What the daemon makes of the machine's interfaces and of its two files, as a person sees it.

    [ mdnsproxy over a scripted libdns_sd.so.1 ]----- lo, a, b
"""

import re

import pytest
from testbed import rule, services_list, wait_until
from testbed.daemon import RULES_FILE, SERVICES_FILE

WIDE = "[mdnsproxy]\nlog_level = enable\n"
SERVICES = services_list(Media=["_airplay._tcp", "_raop._tcp"], Nothing=[], Printing=["_ipp._tcp"])


def interfaces(namespace):
    """Every interface's index by its name, in the kernel's order."""
    lines = namespace.run("ip -o link show").splitlines()
    return {match[2]: int(match[1]) for match in (re.match(r"(\d+): ([^:@]+)", line) for line in lines)}


def debug_messages(daemon):
    """The debug stream's own messages; what syslog copies to standard error begins otherwise."""
    return re.findall(r"^mdnsproxy\.c:\d+:(.*?)\n(?=mdnsproxy|\Z)", daemon.debug_stream, re.MULTILINE | re.DOTALL)


def dumped(daemon):
    """What the dump has written, without the traces of the counting."""
    return [line.text for line in daemon.box.syslog if line.priority == 7 and not line.text.startswith("hash_count_")]


def test_the_dump_holds_everything_and_is_in_the_system_log_alone(scene):
    daemon = scene.scripted_daemon(rule("Media", "a", "b", bidirectional=True, literal=False),
                                   rule("_ipp._tcp", "a", "b"), services=SERVICES, settings=WIDE)
    index = interfaces(scene.parts[0])
    daemon.start_and_wait("-d")
    wait_until(lambda: "HandleEvents(): LOOP" in daemon.debug_stream, 5, "the debug stream going on")
    a, b = index["a"], index["b"]
    assert dumped(daemon) == [
        f"\n\n*****>>>>>>>>>>> {len(index)} total in the gHashIfNameToIndex:\n",
        *(f"\t>>> ({number}) if_name = {name} >>> if_index = {index[name]}" for number, name in enumerate(index)),
        "\n\n*****>>>>>>>>>>> 3 total in the gHashServiceNameToServiceTypesArray:\n",
        "\t>>> (0) service_name = Media >>> service_type = _airplay._tcp",
        "\t>>> (0) service_name = Media >>> service_type = _raop._tcp",
        "\t>>> (2) service_name = Printing >>> service_type = _ipp._tcp",
        "\n\n*****>>>>>>>>>>> 3 total in the gHashServiceTypeToId:\n",
        "\t>>> (0) service_type = _airplay._tcp >>> id = 1",
        "\t>>> (1) service_type = _raop._tcp >>> id = 2",
        "\t>>> (2) service_type = _ipp._tcp >>> id = 3",
        "\n\n*****>>>>>>>>>>> 2 total ifFrom's in the gHashRulesIfFrom\n",
        f"\t>>> (0) if_index = {a}: ",
        "\t\t>>> (0, 0) service_type_index = 1: ", f"\t\t\t(0, 0, 0): {b}",
        "\t\t>>> (0, 1) service_type_index = 2: ", f"\t\t\t(0, 1, 0): {b}",
        "\t\t>>> (0, 2) service_type_index = 3: ", f"\t\t\t(0, 2, 0): {b}",
        f"\t>>> (1) if_index = {b}: ",
        "\t\t>>> (1, 0) service_type_index = 1: ", f"\t\t\t(1, 0, 0): {a}",
        "\t\t>>> (1, 1) service_type_index = 2: ", f"\t\t\t(1, 1, 0): {a}",
    ]
    messages = debug_messages(daemon)
    assert "debug_printOutAllHashInfo(): START....\n" in messages
    assert [message for message in messages if ">>> (" in message or "*****>>>>>>>>>>>" in message] == []


def test_without_a_wide_mask_the_dump_is_nowhere(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b")).start_and_wait("-d")
    assert "debug_printOutAllHashInfo(): START....\n" in debug_messages(daemon)
    assert "gHashIfNameToIndex" not in daemon.debug_stream
    assert daemon.box.logged("gHash") == []


@pytest.mark.parametrize("file, status, content, text, number", [
    (SERVICES_FILE, 110, None, "cannot find services config file", "100130114: cannot find services"),
    (SERVICES_FILE, 110, "", "services config file stat invalid", "100130114: services"),
    (RULES_FILE, 120, None, "cannot find rules config file", "12013011401: cannot find rules"),
    (RULES_FILE, 120, "", "cannot find rules config file", "12013011401: rules")],
    ids=["no services list", "empty services list", "no rules list", "empty rules list"])
def test_in_debug_mode_a_file_that_cannot_be_read_is_named_before_the_end(scene, file, status, content, text, number):
    daemon = scene.scripted_daemon(settings=WIDE)
    if content is None:
        daemon.box.path(file).unlink()
    else:
        daemon.box.write(file, content)
    daemon.start("-d")
    assert daemon.wait_for_exit() == status
    assert debug_messages(daemon).count(f"{text}: {file}") == 1
    assert [line.priority for line in daemon.box.logged(f"ERROR {number}")] == [4]
    assert daemon.status_code == status


def test_a_service_that_is_never_ended(scene):
    daemon = scene.scripted_daemon(services='<mdnsservice name="Printing">\n<service type="_ipp._tcp"/>\n').start()
    assert daemon.wait_for_exit() == 110
    assert daemon.status_file == ("110\nERROR 131155: ERROR in (list): missing </mdnsservice> after <mdnsservice> tag, "
                                  "exiting.\n")


def test_a_tag_that_is_never_closed_ends_the_rules(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b"), rule("_ipp._tcp", "b", "a").replace("/>", ""))
    daemon.start_and_wait()
    assert len(daemon.script.calls_of("DNSServiceBrowse")) == 1


def test_rules_before_a_broken_one_have_been_installed(scene):
    daemon = scene.scripted_daemon(rule("_ipp._tcp", "a", "b"),
                                   rule("_raop._tcp", "a", "b").replace('"1"', '"2"')).start()
    assert daemon.wait_for_exit() == 120
    assert len(daemon.script.calls_of("DNSServiceBrowse")) == 1
    assert "ERROR 12013011409" in daemon.status_file
