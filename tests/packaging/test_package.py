# SPDX-License-Identifier: MIT
"""The package on a fresh Debian (debian_root.py says which): one story from installation to purge, told in the order of
the tests.

         link br10                    router                       link br20
    [ printer 10.1.0.2 ]---[ br10 10.1.0.1 | br20 10.2.0.1 ]---[ browser 10.2.0.2 ]

The router is a Debian machine that systemd boots: the daemon runs under its unit with every restriction in force.
"""

import re
import shutil

import pytest
import source_tree
from machine import Machine
from testbed import Browser, Network, Printer, stays_true, wait_until

# pylint: disable=redefined-outer-name  # fixtures
OLD_VERSION = "0.9.9"
RULES = "/etc/mdnsproxyrule-list.xml"


@pytest.fixture(scope="module")
def network():
    with Network("br10", "br20") as made:
        yield made


@pytest.fixture(scope="module")
def files_before(debian, package):
    """What was there before the package and what it depends on; installs an older version of it."""
    before = debian.files()
    package.as_version(OLD_VERSION, debian.path / "old.deb")
    shutil.copy(package.path, debian.path / "new.deb")
    debian.install("/old.deb")
    return before | {"old.deb", "new.deb"}


@pytest.fixture(scope="module")
def router(debian, network, files_before):  # pylint: disable=unused-argument
    made = Machine(debian, network.gateway)
    yield made
    made.close()


def example(name):
    return source_tree.read(f"packaging/examples/{name}")


# --- The package by itself


def test_lintian_is_content(package):
    assert package.findings == ""


def test_the_compiler_is_content(package):
    assert re.findall(r"^.*\.(?:cpp|h)(?::\d+)+: warning: .*$", package.log, re.MULTILINE) == []


def test_it_holds_what_it_should(package):
    files = [path.replace("/usr/lib/systemd/", "/lib/systemd/") for path in package.files()]  # two names of one folder
    library = next(path for path in files if path.endswith("/mdnsproxy/libdns_sd.so.1"))
    assert re.fullmatch(r"/usr/lib/[\w-]+/mdnsproxy/libdns_sd\.so\.1", library)
    for expected in ("/usr/sbin/mdnsproxy", "/usr/bin/mdnsproxy-check", "/usr/bin/mdnsproxyctl",
                     "/etc/mdnsservice-list.xml", RULES, "/etc/mdnsproxy.conf", "/lib/systemd/system/mdnsproxy.service",
                     "/lib/systemd/system/mdnsproxy-interface@.service",
                     "/lib/systemd/system/mdnsproxy-metrics.service", "/lib/systemd/system/mdnsproxy-metrics.timer",
                     "/usr/share/bash-completion/completions/mdnsproxyctl",
                     "/usr/share/zsh/vendor-completions/_mdnsproxyctl", "/usr/lib/sysctl.d/10-mdnsproxy.conf",
                     "/usr/share/man/man8/mdnsproxy.8.gz", "/usr/share/man/man1/mdnsproxy-check.1.gz",
                     "/usr/share/man/man1/mdnsproxyctl.1.gz", "/usr/share/man/man5/mdnsproxy-rules.5.gz",
                     "/usr/share/man/man5/mdnsproxy-services.5.gz", "/usr/share/man/man5/mdnsproxy.conf.5.gz",
                     "/usr/share/doc/mdnsproxy/README.md.gz", "/usr/share/doc/mdnsproxy/examples/mdnsservice-list.xml"):
        assert expected in files


def test_the_examples_are_in_order(package):
    for path in package.files():
        if path.startswith("/usr/share/doc/mdnsproxy/examples/") and not path.endswith(("mdnsservice-list.xml",
                                                                                        ".conf")):
            source_tree.run(source_tree.BUILD / "mdnsproxy-check", "--services",
                            source_tree.ROOT / "packaging/etc/mdnsservice-list.xml", "--rules",
                            source_tree.ROOT / "packaging/examples" / path.rsplit("/", 1)[1], "--settings",
                            source_tree.ROOT / "packaging/etc/mdnsproxy.conf", "--interfaces", "br10,br20,br30,br40")


# --- On the router


def test_a_fresh_installation_runs_and_forwards_nothing(router):
    router.wait_until_forwarding()
    assert "Nothing will be forwarded: there is no rule." in router.journal()
    assert router.shell("systemctl is-enabled mdnsproxy").strip() == "enabled"
    assert router.output("systemctl is-enabled mdnsproxy-metrics.timer").strip() == "disabled"
    assert router.output("systemctl is-active mdnsproxy-metrics.timer").strip() == "inactive"
    assert router.shell("systemctl --failed --plain --no-legend") == ""


def test_an_upgrade_keeps_what_the_administrator_wrote_and_restarts_the_daemon(router):
    before = router.wait_until_forwarding()
    router.write(RULES, example("print-to-guests.xml"))
    router.shell("apt-get -q -y install /new.deb")
    assert router.shell("dpkg-query -W -f '${Version}' mdnsproxy") == source_tree.version()
    router.wait_until_forwarding(other_than=before)
    assert router.shell(f"cat {RULES}") == example("print-to-guests.xml")
    assert re.search(r"br10 +br20 +_ipp\._tcp +Printing", router.journal())


def test_the_checker_agrees_on_the_machine_itself(router):
    shown = router.shell("mdnsproxy-check")
    assert shown.startswith(f"Rules list: {RULES}, which the unit copies for the daemon\n")
    assert "Will be forwarded:" in shown


def test_a_printer_is_forwarded_and_taken_back(router, network):
    router.wait_until_forwarding()
    with Browser(network["br20"]) as browser, Printer(network["br10"], "Office Printer") as printer:
        details = browser.sees("Office Printer", within=10)
        assert details.parsed_addresses() == printer.info.parsed_addresses()
        assert details.port == printer.info.port
        printer.goodbye()
        browser.loses("Office Printer", within=5)


def test_nothing_is_forwarded_the_other_way(router, network):
    router.wait_until_forwarding()
    with (Printer(network["br20"], "Guest Printer"), Browser(network["br10"]) as browser,
          Browser(network["br20"]) as witness):
        witness.sees("Guest Printer")
        stays_true(lambda: "Guest Printer" not in browser.names, 2, "nothing of the guests in the office")


def test_the_daemon_runs_restricted(router):
    pid = router.wait_until_forwarding()
    process = dict(line.split(":", 1) for line in router.shell(f"cat /proc/{pid}/status").splitlines())
    assert "0" not in process["Uid"].split(), "a user of its own"
    assert {process[name].strip() for name in ("CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb")} == {"0" * 16}
    assert process["NoNewPrivs"].strip() == "1"
    assert process["Seccomp"].strip() == "2", "a system-call filter"
    for path in ("/usr/x", "/etc/x", "/var/x", "/var/tmp/../lib/x"):
        assert router.status(f"nsenter --target={pid} --mount touch {path}") != 0, f"{path} can be written"
    assert router.status(f"nsenter --target={pid} --mount touch /tmp/x && test ! -e /tmp/x") == 0, "a /tmp of its own"
    namespaces = [router.shell(f"readlink /proc/{process}/ns/user") for process in (pid, 1)]
    assert namespaces[0] != namespaces[1], "a user namespace of its own"


def test_other_address_families_and_system_calls_are_refused(router):
    """In the unit's own sandbox, with the filters that systemd makes of the unit file."""
    filters = [line for line in source_tree.read("packaging/systemd/mdnsproxy.service.in").splitlines()
               if re.match(r"(RestrictAddressFamilies|SystemCall|DynamicUser|NoNewPrivileges|CapabilityBoundingSet|"
                        r"RestrictNamespaces)", line)]
    options = " ".join(f"-p '{line}'" for line in filters)
    run = f"systemd-run --quiet --wait --pipe {options}"
    for family in ("AF_INET", "AF_INET6", "16"):  # 16: AF_NETLINK
        router.shell(f"{run} perl -MSocket=:all -e 'socket(S, {family}, SOCK_DGRAM, 0) or die $!'")
    packet = "17"
    assert "Address family not supported" in router.output(f"{run} perl -MSocket=:all -e 'socket(S, {packet}, "
                                                           f"SOCK_DGRAM, 0) or die $!'")
    for refused in ("unshare --user true", "nice -n 5 true", "chroot / true"):
        assert "Operation not permitted" in router.output(f"{run} {refused}")


def test_the_status_file_is_read_as_the_manual_says(router):
    router.wait_until_forwarding()
    shown = router.shell("cat /proc/$(systemctl show -P MainPID mdnsproxy)/root/tmp/mdnsproxy.out")
    assert shown.startswith("0\nFinished startup")


def test_anybody_on_the_router_sees_what_it_does(router, network):
    router.wait_until_forwarding()
    with Browser(network["br20"]) as browser, Printer(network["br10"], "Office Printer"):
        browser.sees("Office Printer", within=10)
        shown = router.shell("setpriv --reuid=nobody --regid=nogroup --clear-groups mdnsproxyctl services")
        assert re.search(r"Office Printer +_ipp._tcp +br10 +br20 +forwarded", shown)


def test_stopping_withdraws_everything_and_logs_the_last_status(router, network):
    router.wait_until_forwarding()
    with Browser(network["br20"]) as browser, Printer(network["br10"], "Office Printer"):
        browser.sees("Office Printer", within=10)
        router.shell("systemctl stop mdnsproxy")
        browser.loses("Office Printer", within=2)
    assert "0\nFinished startup" in router.journal()
    assert router.shell("systemctl show -P Result mdnsproxy").strip() == "success"
    router.shell("systemctl start mdnsproxy")


def test_a_reload_is_another_process_and_nothing_blinks(router, network):
    before = router.wait_until_forwarding()
    with Browser(network["br20"]) as browser, Printer(network["br10"], "Office Printer"), Printer(network["br10"],
                                                                                                  "Old Printer") as old:
        browser.sees("Office Printer", within=10)
        browser.sees("Old Printer", within=10)
        router.shell("systemctl reload mdnsproxy")
        old.goodbye()
        router.wait_until_forwarding(other_than=before)
        # What nobody has announced again is taken back last.
        browser.loses("Old Printer", within=15)
        assert ("removed", "Office Printer") not in [(what, name) for _, what, name in browser.events]


def test_a_list_is_applied_and_nothing_blinks(router, network):
    before = router.wait_until_forwarding()
    router.write("/root/both.xml", example("print-to-guests.xml") + example("print-to-guests.xml").replace("Printing",
                                                                                                           "Scanning"))
    with Browser(network["br20"]) as browser, Printer(network["br10"], "Office Printer"):
        browser.sees("Office Printer", within=10)
        shown = router.shell("mdnsproxyctl apply /root/both.xml")
        assert "forwarded from now on: _uscan._tcp from br10 to br20" in shown
        assert router.daemon_pid not in (0,
                                         before) and f"The daemon runs with it, process {router.daemon_pid}.\n" in shown
        assert ("removed", "Office Printer") not in [(what, name) for _, what, name in browser.events]
    assert router.shell(f"stat -c '%a %U' {RULES} && rm /root/both.xml") == "644 root\n"


def test_a_list_that_the_daemon_does_not_run_with_is_taken_back(router):
    """The checker finds nothing wrong with it."""
    before = router.wait_until_forwarding()
    installed = router.shell(f"cat {RULES}")
    router.write("/root/one.xml", example("print-to-guests.xml"))
    router.shell("mkdir -p /etc/systemd/system/mdnsproxy.service.d")
    # Ends like a daemon that has lost an interface, but for the list that was there before.
    router.write("/root/no.sh", f"#!/bin/sh\ngrep -q Scanning {RULES} || exit 40\nexec /usr/sbin/mdnsproxy\n")
    router.shell("cp /root/no.sh /usr/local/sbin/ && chmod 755 /usr/local/sbin/no.sh")
    router.write("/etc/systemd/system/mdnsproxy.service.d/no.conf",
                 "[Service]\nExecStart=\nExecStart=/usr/local/sbin/no.sh\n")
    router.shell("systemctl daemon-reload")
    shown = router.output("mdnsproxyctl apply /root/one.xml")
    assert "The old file is back, since the daemon ended with exit status 40" in shown
    assert router.shell(f"cat {RULES}") == installed
    assert f"The daemon runs with the old one, process {router.wait_until_forwarding(other_than=before)}." in shown
    router.shell("rm -r /etc/systemd/system/mdnsproxy.service.d /usr/local/sbin/no.sh /root/no.sh /root/one.xml && "
                 "systemctl daemon-reload")
    router.write(RULES, example("print-to-guests.xml"))
    router.shell("systemctl restart mdnsproxy")


def test_figures_are_written_for_a_collector_that_is_there(router):
    router.wait_until_forwarding()
    router.shell("systemctl start mdnsproxy-metrics.service")
    assert router.status("test -e /var/lib/prometheus") != 0, "nobody collects"
    router.shell("mkdir -p /var/lib/prometheus/node-exporter && chown nobody /var/lib/prometheus/node-exporter")
    router.shell("systemctl start mdnsproxy-metrics.service")
    assert "\nmdnsproxy_up 1\n" in router.shell("setpriv --reuid=nobody cat "
                                                "/var/lib/prometheus/node-exporter/mdnsproxy.prom")
    router.shell("systemctl stop mdnsproxy && systemctl start mdnsproxy-metrics.service && systemctl start mdnsproxy")
    assert "\nmdnsproxy_up 0\n" in router.shell("cat /var/lib/prometheus/node-exporter/mdnsproxy.prom")
    router.shell("systemctl enable --now mdnsproxy-metrics.timer && systemctl is-active mdnsproxy-metrics.timer")
    router.shell("systemctl disable --now mdnsproxy-metrics.timer && rm -r /var/lib/prometheus")


def test_root_is_told_of_a_list_that_the_daemon_cannot_read(router):
    router.wait_until_forwarding()
    router.shell(f"chmod 600 {RULES}")
    assert router.status("mdnsproxy-check") == 2
    assert "12013011401" in router.output("mdnsproxy-check")
    router.shell(f"chmod 644 {RULES}")
    assert router.status("mdnsproxy-check") == 0


def test_it_is_restarted_however_it_ended(router):
    before = router.wait_until_forwarding()
    router.shell("systemctl kill --signal=KILL mdnsproxy")
    after = router.wait_until_forwarding(other_than=before)
    router.shell("systemctl kill --signal=TERM mdnsproxy")  # a clean end to systemd, as exit status 0 is
    router.wait_until_forwarding(other_than=after)


def test_a_mistake_in_a_list_is_explained_in_the_journal_and_not_tried_again(router):
    router.wait_until_forwarding()
    router.write(RULES, example("print-to-guests.xml").replace('"no"', '"perhaps"'))
    router.shell("systemctl restart mdnsproxy")
    wait_until(lambda: router.unit_state() == "failed", 20, router.logs)
    assert re.search(rf"{RULES}:4:\d+: error: ERROR 12013011407: .*cure: write bidirectional=\"yes\"", router.journal())
    assert router.shell("systemctl show -P ExecMainStatus mdnsproxy").strip() == "120"
    assert "sudo" not in router.journal()
    router.write(RULES, example("print-to-guests.xml"))
    router.shell("systemctl restart mdnsproxy")
    router.wait_until_forwarding()


def test_a_type_that_is_none_is_not_tried_for_ever(router):
    router.wait_until_forwarding()
    router.write(RULES, example("print-to-guests.xml").replace("Printing", "ipp").replace('rule_type="0"',
                                                                                          'rule_type="1"'))
    router.shell("systemctl restart mdnsproxy")
    wait_until(lambda: router.unit_state() in ("failed", "inactive"), 30, router.logs)
    assert router.shell("systemctl show -P ExecMainStatus mdnsproxy").strip() == str(600 & 255)
    restarts = router.shell("systemctl show -P NRestarts mdnsproxy")
    stays_true(lambda: router.unit_state() in ("failed", "inactive"), 6, "no further start")
    assert router.shell("systemctl show -P NRestarts mdnsproxy") == restarts
    assert "600" in router.journal() and "sudo" not in router.journal()
    router.write(RULES, example("print-to-guests.xml"))
    router.shell("systemctl restart mdnsproxy")
    router.wait_until_forwarding()


def test_a_named_interface_that_comes_or_goes_restarts_it(router):
    before = router.wait_until_forwarding()
    router.shell("systemctl enable mdnsproxy-interface@br30.service")
    router.shell("ip link add br30 type bridge")
    after = router.wait_until_forwarding(other_than=before)
    router.shell("ip link delete br30")
    router.wait_until_forwarding(other_than=after)


def test_an_interface_that_a_rule_names_may_come_later(router):
    before = router.wait_until_forwarding()
    router.write(RULES, example("cast-to-meeting-room.xml"))  # from br30
    router.shell("systemctl restart mdnsproxy")
    wait_until(lambda: router.unit_state() == "activating" and "INTERFACE LOOKUP ERROR 111833" in router.journal(), 20,
               router.logs)
    router.shell("ip link add br30 type bridge")
    router.wait_until_forwarding(other_than=before)


def test_removal_leaves_the_lists_and_nothing_that_runs(router):
    router.shell("apt-get -q -y remove mdnsproxy")
    assert router.status("pidof mdnsproxy") != 0
    assert router.status("systemctl cat mdnsproxy.service") != 0
    assert router.shell(f"cat {RULES}") == example("cast-to-meeting-room.xml")


def test_after_a_purge_nothing_is_left(router, debian, files_before):
    router.shell("apt-get -q -y purge mdnsproxy")
    assert router.shell("find /run /tmp -name '*mdnsproxy*' ! -path '/run/systemd/*' ! -path '/run/udev/*'") == ""
    router.shell("systemctl reset-failed")
    router.close()
    debian.run("apt-get", "-q", "-y", "autoremove", "--purge")
    left = sorted(debian.files() - files_before)
    assert [path for path in left if not path.startswith("var/lib/")] == []
