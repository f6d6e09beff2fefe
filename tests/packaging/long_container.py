# SPDX-License-Identifier: MIT
"""The container of packaging/container, built from the package and run by podman as its README says.

         link br10                    router                       link br20
    [ printer 10.1.0.2 ]---[ br10 10.1.0.1 | br20 10.2.0.1 ]---[ browser 10.2.0.2 ]

No image is downloaded: the one that it begins with is a Debian that debootstrap has made.
"""

import os
import pathlib
import re
import shutil

import pytest
import source_tree
from debian_root import cached_tar
from podman import Podman
from testbed import Browser, Network, Printer, wait_until

# pylint: disable=redefined-outer-name  # fixtures
FOLDER = source_tree.ROOT / "packaging/container"
USER = 5353
RULES = "mdnsproxyrule-list.xml"
IMAGE, BASE = "localhost/mdnsproxy", "localhost/debian"


def example(name):
    return source_tree.read(f"packaging/examples/{name}")


@pytest.fixture(scope="module")
def network():
    with Network("br10", "br20") as made:
        yield made


@pytest.fixture(scope="module")
def podman(network):
    made = Podman(network.gateway)
    yield made
    made.close()


@pytest.fixture(scope="module")
def image(podman, package, tmp_path_factory):
    context = tmp_path_factory.mktemp("context") / "container"
    shutil.copytree(FOLDER, context)
    shutil.copy(package.path, context)
    podman.import_tar(cached_tar(), BASE)
    podman.build(context, IMAGE, BASE=BASE)
    return IMAGE


@pytest.fixture(scope="module")
def folders(tmp_path_factory):
    """What the container shares with the host: (the files, the state)."""
    top = tmp_path_factory.mktemp("host")
    top.chmod(0o755)
    config, state = top / "config", top / "state"
    config.mkdir(mode=0o755)
    state.mkdir()
    os.chown(state, USER, USER)
    (config / RULES).write_text(example("print-to-guests.xml"))
    return config, state


@pytest.fixture(scope="module")
def container(podman, image, folders):
    config, state = folders
    options = [option for option in readme_options() if not option.startswith(("--name", "--network", "--volume"))]
    return podman.run("mdnsproxy", image, *options, f"--volume={config}:/config:ro", f"--volume={state}:/run/mdnsproxy")


def readme_options():
    """What the README starts it with."""
    readme = source_tree.read("packaging/container/README.md")
    command = re.search(r"^podman run ((?:.*\\\n)*.*)$", readme, re.MULTILINE)[1]
    return re.findall(r"--\w[\w-]*(?:=\S+)?", command)


def daemon_of(container):
    """Its process id on this machine."""
    def found():
        children = container.children()
        return children if children and os.readlink(f"/proc/{children[0]}/exe") == "/usr/sbin/mdnsproxy" else None
    pids = wait_until(found, 10, container.logs)
    assert len(pids) == 1
    return pids[0]


def test_it_is_started_as_the_readme_says():
    assert readme_options() == ["--name", "--network=host", "--read-only", "--cap-drop=all", "--volume", "--volume"]


def test_a_printer_is_forwarded_and_taken_back(container, network):
    daemon_of(container)
    with Browser(network["br20"]) as browser, Printer(network["br10"], "Office Printer") as printer:
        details = browser.sees("Office Printer", within=15)
        assert sorted(details.parsed_addresses()) == sorted(printer.info.parsed_addresses())
        printer.goodbye()
        browser.loses("Office Printer", within=5)


def test_the_daemon_has_no_privilege(container):
    shown = pathlib.Path(f"/proc/{daemon_of(container)}/status").read_text(encoding="utf-8")
    status = dict(line.split(":", 1) for line in shown.splitlines())
    assert status["Uid"].split() == [str(USER)] * 4
    assert {status[name].strip() for name in ("CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb")} == {"0" * 16}


def test_the_log_says_what_will_be_forwarded(container):
    wait_until(lambda: re.search(r"br10 +br20 +_ipp\._tcp +Printing", container.logs()), 5, container.logs)


def test_its_state_is_shown_inside_and_outside(container, folders, network):
    ctl = (source_tree.BUILD / "mdnsproxyctl", "--state-file", folders[1] / "state")
    with Browser(network["br20"]) as browser, Printer(network["br10"], "Office Printer"):
        browser.sees("Office Printer", within=15)
        for shown in (container.exec("mdnsproxyctl", "services"), source_tree.run(*ctl, "services")):
            assert re.search(r"Office Printer +_ipp._tcp +br10 +br20 +forwarded", shown), shown


def test_a_restart_reads_what_the_host_has_written(container, folders, network):
    other_way = {'"br10"': '"br20"', '"br20"': '"br10"'}
    text = re.sub(r'"br\d0"', lambda found: other_way[found[0]], example("print-to-guests.xml"))
    (folders[0] / RULES).write_text(text)
    container.restart()
    daemon_of(container)
    with Browser(network["br10"]) as browser, Printer(network["br20"], "Guest Printer"):
        browser.sees("Guest Printer", within=15)


def test_sigterm_ends_it_with_goodbyes(container, network):
    daemon_of(container)
    with Browser(network["br10"]) as browser, Printer(network["br20"], "Guest Printer"):
        browser.sees("Guest Printer", within=15)
        container.signal("TERM")
        browser.loses("Guest Printer", within=3)
    assert container.wait() == 128 + 15


def test_a_mistake_ends_it_and_is_explained(podman, image, folders):
    config, state = folders
    (config / RULES).write_text(example("print-to-guests.xml").replace('"no"', '"perhaps"'))
    made = podman.run("mistaken", image, "--read-only", "--cap-drop=all", f"--volume={config}:/config:ro",
                      f"--volume={state}:/run/mdnsproxy")
    assert made.wait() == 120
    assert re.search(r"mdnsproxyrule-list.xml:4:\d+: error: .*cure: write bidirectional=\"yes\"", made.logs())


def test_without_files_of_its_own_it_runs_and_forwards_nothing(podman, image):
    made = podman.run("bare", image, "--cap-drop=all")
    daemon_of(made)
    assert "there is no rule" in wait_until(made.logs, 5, "a log")
