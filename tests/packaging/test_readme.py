# SPDX-License-Identifier: MIT
"""The README, followed from top to bottom: every command line in it is run, where its comment says, and every file is
written.

    <!-- on the workstation -->    this machine: the source tree
    <!-- on the router -->         a Debian machine that has never seen the package, with the interfaces br10 to br40
    <!-- on a client -->           another Debian machine, on link br20
    <!-- file PATH -->             on the router; the packet filter is only checked
"""

import fnmatch
import os
import re
import shutil
import subprocess
import typing

import package as debian_package
import pytest
import source_tree
from debian_root import DebianRoot
from machine import Machine
from testbed import Network, Printer, wait_until

# pylint: disable=redefined-outer-name  # fixtures


NFT = "file /etc/nftables.d/mdnsproxy.nft"


class Block(typing.NamedTuple):
    place: str  # "on the router", "file /etc/..."
    text: str


def blocks():
    return [Block(*found) for found in re.findall(r"^<!-- (.+) -->\n```\w+\n((?:(?!```).*\n)*)```",
                                                  source_tree.read("README.md"), re.MULTILINE)]


def commands(place):
    return [line for block in blocks() if block.place == place for line in block.text.splitlines()]


def rules_files():
    return [block.text for block in blocks() if block.place == "file /etc/mdnsproxyrule-list.xml"]


@pytest.fixture(scope="module")
def network():
    with Network("br10", "br20", "br30", "br40") as made:
        yield made


@pytest.fixture(scope="module")
def router(debian, network, package):
    """The machine has no way to the network outside, so what the package depends on is there before it."""
    debian.install(*package.dependencies())
    (debian.path / "root" / package.path.name).write_bytes(package.path.read_bytes())
    made = Machine(debian, network.gateway)
    yield made
    made.close()


@pytest.fixture(scope="module")
def client(network):
    root = DebianRoot()
    root.install("avahi-daemon", "avahi-utils")
    machine = Machine(root, network["br20"].ns)
    yield machine
    machine.close()
    root.close()


# --- The page by itself


def test_every_block_of_commands_says_where_it_is_run():
    text = source_tree.read("README.md")
    fenced = re.findall(r"^```(\w+)\n", text, re.MULTILINE)
    assert len(fenced) == len(blocks())
    places = {block.place for block in blocks()}
    assert places == {"on the workstation", "on the router", "on a client", "file /etc/mdnsproxyrule-list.xml", NFT}


def test_every_file_that_it_names_is_there():
    for name in re.findall(r"`((?:docs|debian)/[\w./-]+|[A-Z]+(?:\.md)?)`", source_tree.read("README.md")):
        assert (source_tree.ROOT / name).exists(), name


def test_it_names_services_that_the_list_has():
    named = re.search(r"with the usual ones: (.*?) and more", source_tree.read("README.md"), re.DOTALL)[1]
    listed = re.findall(r'mdnsservice name="(\w+)"', source_tree.read("packaging/etc/mdnsservice-list.xml"))
    assert [name for name in re.findall(r"\w+", named) if name not in listed] == []


# --- On the workstation


def test_the_demo_shows_what_it_promises(tmp_path):
    """As in the tree, but with the build that there is."""
    for name in ("demo", "tools", "CMakeLists.txt"):
        (tmp_path / name).symlink_to(source_tree.ROOT / name)
    os.unlink(tmp_path / "demo")
    shutil.copy(source_tree.ROOT / "demo", tmp_path / "demo")
    (tmp_path / "build").symlink_to(source_tree.BUILD)
    assert "./demo" in commands("on the workstation")
    shown = source_tree.run("./demo", cwd=tmp_path)
    assert len(shown.splitlines()) > 3, shown


def test_the_check_is_a_program_that_knows_its_options():
    """It cannot run itself; what runs this test is usually the check."""
    assert "./check" in commands("on the workstation")
    done = subprocess.run([source_tree.ROOT / "check", "--unknown"], stdin=subprocess.DEVNULL, capture_output=True,
                          text=True, check=False)
    assert done.returncode == 2 and "--fast" in done.stdout


def test_the_package_is_built_by_its_command():
    assert debian_package.COMMAND in commands("on the workstation")


def test_nothing_else_is_asked_for_on_the_workstation():
    assert commands("on the workstation") == ["./demo", "./check", "apt-get build-dep .", debian_package.COMMAND]


def test_what_the_package_needs_is_known_to_apt():
    """Everything is there already, since the package has been built."""
    shown = source_tree.run("apt-get", "--simulate", "build-dep", source_tree.ROOT)
    assert not re.findall(r"^Inst ", shown, re.MULTILINE), shown


def test_the_package_lies_where_it_says(package):
    named = re.search(r"as `\.\./(\S+\.deb)`", source_tree.read("README.md"))[1]
    assert re.sub(r"_\w+\.deb$", "", package.path.name) == re.sub(r"_\w+\.deb$", "", named)


def test_the_packet_filter_is_one(network, tmp_path):
    (tmp_path / "rules").write_text("".join(block.text for block in blocks() if block.place == NFT))
    source_tree.run(*network.gateway.command("nft", "--check", "--file", tmp_path / "rules"))


# --- On the router and beyond


def test_it_can_be_followed_from_top_to_bottom(router, client, network):
    with Printer(network["br10"], "Office Printer"):
        for block in blocks():
            if block.place == "file /etc/mdnsproxyrule-list.xml":
                router.write(block.place.removeprefix("file "), block.text)
                router.shell("mdnsproxy-check --rules /etc/mdnsproxyrule-list.xml")
            elif block.place == "on the router":
                follow(router, block.text)
            elif block.place == "on a client":
                have_printing(router)
                follow_on_client(client, block.text)


def follow(router, text):
    for line in text.splitlines():
        if line.startswith("cat /proc/"):
            router.wait_until_forwarding()
            assert router.shell(line).startswith("0\n")
        elif line.startswith("mdnsproxyctl "):
            router.wait_until_forwarding()
            assert router.status(line) in (0, 1, 2), "it has found a daemon that runs"
        elif line.startswith("man "):
            assert "mdnsproxy" in router.shell(f"{line} | cat")
        else:
            router.shell(line)


def have_printing(router):
    """The reader has one of the three rules lists; the printer is seen with the first."""
    router.write("/etc/mdnsproxyrule-list.xml", rules_files()[0])
    router.shell("systemctl restart mdnsproxy")
    router.wait_until_forwarding()


def follow_on_client(client, text):
    for line in text.splitlines():
        assert fnmatch.fnmatch(line, "avahi-browse *")
        shown = wait_until(lambda line=line: "vender=Zenmor" in (output := client.output(line)) and output, 20,
                           client.logs)
        assert re.search(r"= +br0 IPv[46] Office Printer +Internet Printer", shown)
        assert re.search(r"hostname = \[office-printer.local\]\n\s*address = \[(10\.1\.0\.2|fd00:1::2)\]\n\s*port = "
                         r"\[631\]", shown)


@pytest.mark.parametrize("number", range(3))
def test_its_rules_forward_what_it_says(router, number):
    expected = [("br10 +br20 +_ipp._tcp +Printing",),
                ("br30 +br10 +_googlecast._tcp +Casting", "br30 +br10 +_airplay._tcp +AirPlay"),
                ("br10 +br40 +_smb._tcp +FileSharing", "br40 +br10 +_smb._tcp +FileSharing",
                 "br40 +br10 +_rsync._tcp +-")][number]
    router.write("/etc/mdnsproxyrule-list.xml", rules_files()[number])
    table = router.shell("mdnsproxy-check --rules /etc/mdnsproxyrule-list.xml")
    assert "warning" not in table
    for row in expected:
        assert re.search(row, table), table
