# SPDX-License-Identifier: MIT
"""packaging/openwrt as far as it goes without a router: its scripts in busybox's ash, stand-ins for what OpenWrt has
around them (tests/portability/openwrt)."""

import os
import re
import shutil
import subprocess

import pytest
import source_tree

FILES = source_tree.ROOT / "packaging/openwrt/files"
STAND_INS = source_tree.ROOT / "tests/portability/openwrt"
SHIPPED = source_tree.ROOT / "packaging/etc/mdnsservice-list.xml"


class Router:
    """`config`: the text of /etc/config/mdnsproxy."""

    def __init__(self, top, config):
        self.top = top
        (top / "config").write_text(config)
        shutil.copy(FILES / "mdnsproxy-uci", top)
        shutil.copy(SHIPPED, top / "shipped.xml")
        self.environment = {**os.environ, "PATH": f"{STAND_INS}:{os.environ['PATH']}", "UCI_FILE": str(top / "config"),
                            "TOP": str(top), "SCRIPT": str(FILES / "mdnsproxy.init"),
                            "CHECKER_PROGRAM": str(source_tree.BUILD / "mdnsproxy-check")}

    def ash(self, *arguments):
        """Runs a script in busybox's shell. Status, standard output, standard error."""
        done = subprocess.run(["busybox", "ash", *map(str, arguments)], env=self.environment, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, check=False)
        return done.returncode, done.stdout, done.stderr

    def lists(self, *arguments):
        status, out, err = self.ash(FILES / "mdnsproxy-uci", *arguments)
        assert (status, err) == (0, "")
        return out

    def init(self, function):
        return self.ash(STAND_INS / "procd.sh", function)


@pytest.fixture
def router(tmp_path):
    return lambda config: Router(tmp_path, config)


# pylint: disable=redefined-outer-name


def rules_in(text):
    """The rules of a list, each as its attributes."""
    return [dict(re.findall(r'(\w+)="([^"]*)"', tag)) for tag in re.findall(r"<mdnsproxyrule (.*)/>", text)]


def rule(*ends, **options):
    """A section with these options; `ends`: what it is from, and to."""
    options.update(zip(("from", "to"), ends))
    return "config rule\n" + "".join(f"\toption {name} '{value}'\n" for name, value in options.items())


EXAMPLES = re.findall(r"```\n(.*?)```", source_tree.read("packaging/openwrt/README.md"), re.DOTALL)
OF_THE_README = re.findall(r"<!-- file /etc/mdnsproxyrule-list.xml -->\n```xml\n(.*?)```",
                           source_tree.read("README.md"), re.DOTALL)


def test_the_linter_is_content():
    source_tree.run("shellcheck", *FILES.glob("mdnsproxy-uci"), *FILES.glob("*.init"), STAND_INS / "procd.sh")


def test_every_example_of_the_readme_has_one_here():
    assert len(OF_THE_README) == 3
    assert len(EXAMPLES) == len(OF_THE_README) + 1, "and one for a service of one's own"


@pytest.mark.parametrize("number", range(3))
def test_an_example_makes_the_rules_of_the_readme(router, number):
    made = rules_in(router(EXAMPLES[number]).lists("rules"))
    assert made == rules_in(OF_THE_README[number]) != []


@pytest.mark.parametrize("number", range(4))
def test_the_checker_is_content_with_what_an_example_makes(router, number):
    made = router(EXAMPLES[number])
    (made.top / "made-rules.xml").write_text(made.lists("rules"))
    (made.top / "made-services.xml").write_text(made.lists("services", SHIPPED))
    judged = source_tree.run(source_tree.BUILD / "mdnsproxy-check", "--services", made.top / "made-services.xml",
                             "--rules", made.top / "made-rules.xml",
                             "--settings", FILES / "mdnsproxy.conf",
                             "--interfaces", "br10,br20,br30,br40,br-lan,br-guest")
    assert judged.startswith("Will be forwarded:"), "and nothing is wrong"


def test_a_service_of_ones_own_joins_the_shipped_ones(router):
    made = router(EXAMPLES[3]).lists("services", SHIPPED)
    assert made.count("<mdnsservice ") == SHIPPED.read_text(encoding="utf-8").count("<mdnsservice ") + 1
    assert made.endswith("""
<mdnsservice name="Workshop">
  <service type="_octoprint._tcp"/>
  <service type="_duet._tcp"/>
</mdnsservice>
</mdnsservices>
""")


def test_without_a_section_nothing_is_forwarded_and_the_services_are_the_shipped_ones(router):
    empty = router((FILES / "mdnsproxy.config").read_text(encoding="utf-8"))
    assert rules_in(empty.lists("rules")) == []
    tags = re.compile(r"<[^!][^>]*>")
    assert tags.findall(empty.lists("services", SHIPPED)) == tags.findall(SHIPPED.read_text(encoding="utf-8"))
    assert empty.lists("networks").split() == empty.lists("devices").split() == []


def test_networks_become_devices(router):
    made = router(rule("lan", "eth7", type="_ipp._tcp") + rule("guest", "lan", type="_smb._tcp"))
    ends = [(each["if_from"], each["if_to"]) for each in rules_in(made.lists("rules"))]
    assert ends == [("br-lan", "eth7"), ("br-guest", "br-lan")]
    assert made.lists("networks").split() == ["eth7", "guest", "lan"]
    assert made.lists("devices").split() == ["br-guest", "br-lan", "eth7"]


def test_a_rule_whose_network_is_not_up_is_left_out(router):
    made = router(rule("lan", "away", type="_ipp._tcp") + rule("lan", "guest", type="_ipp._tcp"))
    status, out, err = made.ash(FILES / "mdnsproxy-uci", "rules")
    assert (status, err) == (0, "mdnsproxy-uci: warning: @rule[0] is left out until its networks are up\n")
    assert [each["if_to"] for each in rules_in(out)] == ["br-guest"]
    assert made.lists("networks").split() == ["away", "guest", "lan"], "its coming is waited for"


def test_a_rule_may_be_switched_off(router):
    assert rules_in(router(rule("lan", "guest", enabled=0, type="_ipp._tcp")).lists("rules")) == []


@pytest.mark.parametrize("options, complaint", (
    ({"service": "Printing", "to": "guest"}, "@rule[0].from is missing"),
    ({"service": "Printing", "from": "lan"}, "@rule[0].to is missing"),
    ({"from": "lan", "to": "guest"}, "@rule[0].service is missing"),
    ({"service": "Printing", "type": "_ipp._tcp", "from": "lan", "to": "guest"},
     "@rule[0] has a service and a type: one of them is too much"),
    ({"service": "Print\"/>", "from": "lan", "to": "guest"},
     "@rule[0].service has a character that the lists cannot hold: Print\"/>"),
    ({"service": "Printing", "from": "lan", "to": "guest", "bidirectional": "perhaps"},
     "@rule[0].bidirectional is neither 0 nor 1: 'perhaps'"),
    ({"service": "Printing", "from": "lan", "to": "guest", "enabled": "maybe"},
     "@rule[0].enabled is neither 0 nor 1: 'maybe'")), ids=str)
def test_a_mistake_is_told_and_no_list_is_made(router, options, complaint):
    made = router(rule(**options) + rule("lan", "guest", type="_smb._tcp"))
    assert made.ash(FILES / "mdnsproxy-uci", "rules") == (1, "", f"mdnsproxy-uci: {complaint}\n")


# --- The init script


def test_it_starts_the_daemon_with_both_lists(router):
    made = router(EXAMPLES[3])
    status, out, err = made.init("start_service")
    assert status == 0, err
    assert out.splitlines() == [
        "procd_open_instance ", "procd_set_param command /usr/sbin/mdnsproxy", "procd_set_param respawn 3600 5 0",
        "procd_set_param stderr 1",
        f"procd_set_param file {made.top}/rules.xml {made.top}/services.xml /etc/mdnsproxy.conf",
        "procd_set_param netdev br-guest br-lan", "procd_close_instance "]
    assert [each["mdnsservice"] for each in rules_in((made.top / "rules.xml").read_text())] == ["Workshop"]
    assert 'name="Workshop"' in (made.top / "services.xml").read_text()
    assert "log: " in err, "the checker's verdict"


def test_the_directory_of_the_state_file_is_made(router):
    made = router(EXAMPLES[3])
    assert made.init("start_service")[0] == 0
    assert (made.top / "run/mdnsproxy").is_dir()
    settings, script = ((FILES / f"mdnsproxy.{name}").read_text(encoding="utf-8") for name in ("conf", "init"))
    directory = re.search(r"^STATE_DIRECTORY=(.+)$", script, re.MULTILINE)[1]
    assert re.search(r"^state_file = (.+)$", settings, re.MULTILINE)[1] == f"{directory}/state"


def test_the_list_in_flash_is_written_only_when_it_changes(router):
    made = router(EXAMPLES[3])
    made.init("start_service")
    before = (made.top / "services.xml").stat()
    made.init("start_service")
    after = (made.top / "services.xml").stat()
    assert (after.st_ino, after.st_mtime_ns) == (before.st_ino, before.st_mtime_ns)


def test_a_mistake_leaves_the_lists_of_before(router):
    made = router(EXAMPLES[0])
    made.init("start_service")
    before = (made.top / "rules.xml").read_text()
    (made.top / "config").write_text(rule(service="Printing"))
    status, out, err = made.init("start_service")
    assert status == 0 and "procd_close_instance" in out and "log: mdnsproxy-uci: @rule[0].from is missing" in err
    assert (made.top / "rules.xml").read_text() == before


def test_with_a_mistake_from_the_beginning_nothing_is_started(router):
    status, out, _ = router(rule(service="Printing")).init("start_service")
    assert (status, out) == (1, "")


def test_it_is_told_of_the_configuration_and_of_the_interfaces_that_rules_name(router):
    status, out, err = router(EXAMPLES[3]).init("service_triggers")
    assert (status, err) == (0, "")
    assert out.splitlines() == [
        "procd_add_reload_trigger mdnsproxy",
        "procd_add_interface_trigger interface.* guest /etc/init.d/mdnsproxy reload",
        "procd_add_interface_trigger interface.* lan /etc/init.d/mdnsproxy reload"]


# --- The package's Makefile

PACKAGES = ("mdnsproxy", "mdnsproxy-tools")
LIBRARIES = {"libstdc++.so.6": "libstdcpp", "libinih.so.1": "libinih"}  # and OpenWrt's packages of them
OF_EVERY_SYSTEM = re.compile(r"(libc|libm|libgcc_s|ld-linux[\w-]*)\.so\.\d+")


def made_of(folder, *names):
    """What these names stand for in the Makefile, as GNU make reads it with empty makefiles in place of OpenWrt's."""
    for name in ("rules.mk", "package.mk", "cmake.mk"):
        (folder / name).write_text("")
    show = f"show: ; @:$(info {' '.join(f'$({name})' for name in names)})"
    return source_tree.run("make", "--no-print-directory", "-C", source_tree.ROOT / "packaging/openwrt",
                           f"TOPDIR={folder}", f"INCLUDE_DIR={folder}", "PKG_INSTALL_DIR=/installed",
                           "--eval", show, "show")


def needed(program):
    """The shared libraries that a program of this build asks for, but for those that are everywhere."""
    dynamic = source_tree.run("readelf", "-d", source_tree.BUILD / program)
    libraries = re.findall(r"\(NEEDED\).*\[(.+)\]", dynamic)
    return {library for library in libraries if not OF_EVERY_SYSTEM.fullmatch(library)}


def test_gnu_make_reads_it(tmp_path):
    """What it installs of this tree is there."""
    shown = made_of(tmp_path, "PKG_VERSION", *(f"Package/{package}/install" for package in PACKAGES))
    assert shown.startswith(f"{source_tree.version()} ")
    named = re.findall(rf"{source_tree.ROOT}\S+", shown)
    assert len(named) == 5
    assert [path for path in named if not os.path.exists(path)] == []


def test_every_program_is_in_one_of_its_packages(tmp_path):
    installed = tmp_path / "installed"
    source_tree.run("cmake", "--install", source_tree.BUILD, "--prefix", "/usr",
                    env={**os.environ, "DESTDIR": str(installed)})
    programs = [str(path.relative_to(installed)) for folder in ("bin", "sbin")
                for path in (installed / "usr" / folder).iterdir()]
    shown = made_of(tmp_path, *(f"Package/{package}/install" for package in PACKAGES))
    assert sorted(re.findall(r"/installed/(usr/s?bin/\S+)", shown)) == sorted(programs) != []


@pytest.mark.parametrize("package", PACKAGES)
def test_it_depends_on_what_its_programs_are_linked_with(package, tmp_path):
    programs = re.findall(r"/installed/usr/s?bin/(\S+)", made_of(tmp_path, f"Package/{package}/install"))
    libraries = set().union(*map(needed, programs)) - {"libdns_sd.so.1"}  # that is its own
    depends = re.search(r"DEPENDS:=(.*)", made_of(tmp_path, f"Package/{package}"))[1].split()
    assert sorted(f"+{LIBRARIES[library]}" for library in libraries) == sorted(set(depends) - {"+mdnsproxy"}) != []
