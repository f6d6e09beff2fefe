# SPDX-License-Identifier: MIT
"""The manual: clean, and complete against the programs themselves."""

import re
import signal
import subprocess

import pytest
import source_tree

PAGES = sorted((source_tree.ROOT / "man").iterdir())


def page(name):
    """A page as a person reads it, on one line."""
    text = source_tree.run("mandoc", "-T", "utf8", "-O", "width=1000", source_tree.ROOT / "man" / name)
    return re.sub(r"\s+", " ", re.sub(".\b", "", text))


def is_in(word, text):
    return re.search(rf"(?<![\w-]){re.escape(word)}(?![\w-])", text) is not None


@pytest.mark.parametrize("path", PAGES, ids=lambda path: path.name)
def test_the_linter_is_content(path):
    assert source_tree.run("mandoc", "-T", "lint", "-W", "warning", path) == ""


def test_every_page_is_there():
    assert [path.name for path in PAGES] == [
        "mdnsproxy-check.1", "mdnsproxy-rules.5", "mdnsproxy-services.5", "mdnsproxy.8", "mdnsproxy.conf.5",
        "mdnsproxyctl.1"]


@pytest.mark.parametrize("path", PAGES, ids=lambda path: path.name)
def test_every_page_that_is_referred_to_is_ours_or_known(path):
    known = {"syslog", "fork", "setsid", "systemctl", "nft"}
    ours = {tuple(page.name.rsplit(".", 1)) for page in PAGES}
    for name, section in re.findall(r"^\.Xr (\S+) (\d)", path.read_text(encoding="utf-8"), re.MULTILINE):
        assert (name, section) in ours or name in known, f"{name}({section})"


def test_every_option_of_the_checker_is_in_its_page():
    shown = source_tree.run(source_tree.BUILD / "mdnsproxy-check", "--help")
    options = set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", shown))
    assert {"--services", "--ends-with", "--rules", "--settings", "--interfaces", "--json", "--help", "--version",
            "-h"} <= options
    text = page("mdnsproxy-check.1")
    assert [option for option in sorted(options) if not is_in(option, text)] == []


def test_every_command_and_option_of_mdnsproxyctl_is_in_its_page():
    program = source_tree.BUILD / "mdnsproxyctl"
    shown = source_tree.run(program, "--help")
    commands = re.findall(r"^  ([a-z-]+) {2,}\S", shown.split("Subcommands:")[1], re.MULTILINE)
    assert {"status", "links", "rules", "services", "why", "doctor", "watch", "metrics"} <= set(commands)
    shown += "".join(source_tree.run(program, command, "--help") for command in commands)
    options = set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", shown))
    assert {"--json", "--no-network", "--state-file", "--since", "-o"} <= options
    text = page("mdnsproxyctl.1")
    assert [word for word in sorted({*commands, *options}) if not is_in(word, text)] == []


def test_every_metric_is_in_the_page():
    metrics = set(re.findall(r'"(mdnsproxy_\w+)"', source_tree.read("tools/mdnsproxyctl/metrics.cpp")))
    assert len(metrics) > 10
    text = page("mdnsproxyctl.1")
    assert [name for name in sorted(metrics) if not is_in(name, text)] == []


def test_every_option_of_the_daemon_is_in_its_page():
    accepted = re.search(r'getfirstoption\(argc, argv, "(\w+)"', source_tree.read("src/main.cpp"))[1]
    text = page("mdnsproxy.8")
    assert [option for option in accepted if not is_in(f"-{option}", text)] == []


def test_every_status_code_is_in_the_page_with_its_exit_status():
    codes = [int(number) for number in re.findall(r"MYSTATUS__\w+ = (\d+)", source_tree.read("src/runtime/status.h"))]
    assert codes == [0, 1, 10, 20, 30, 40, 110, 120, 600, 800, 999]
    text = page("mdnsproxy.8")
    for code in codes:
        exit_status = str(code & 255) if code != 1 else "–"
        assert re.search(rf"(?<!\d){code} {exit_status} [A-Z]", text), code


def test_every_handled_signal_is_in_the_page():
    sources = [*(source_tree.ROOT / "src/runtime").glob("*.cpp"), source_tree.ROOT / "src/platform/crashdump.cpp"]
    text = "".join(path.read_text(encoding="utf-8") for path in sources)
    handled = {name for name in re.findall(r"\bSIG[A-Z0-9]+\b", text) if hasattr(signal, name)}
    text = page("mdnsproxy.8")
    assert {"SIGTERM", "SIGUSR1", "SIGSEGV"} <= handled
    not_handled = {"SIGPOLL", "SIGALRM"}  # another name of SIGIO; the crash report's own deadline
    assert [name for name in sorted(handled - not_handled) if not is_in(name, text)] == []


def test_every_path_of_the_daemon_is_in_the_page():
    sources = [source_tree.read(f"src/{name}.cpp") for name in ("runtime/settings", "platform/settings_file")]
    paths = re.findall(r'"(/[^"]+)"', "".join(sources))
    assert len(paths) >= 6
    text = page("mdnsproxy.8")
    assert [path for path in paths if path not in text] == []


def test_every_setting_is_in_its_page():
    source = source_tree.read("src/platform/settings_reading.cpp")
    settings = set(re.findall(r'"(log_level|state_file|\w+_hop|anchor_ap)"', source))
    assert settings == {"log_level", "state_file", "wireless_hop", "wired_hop", "anchor_ap"}
    services = re.findall(r'\{"([A-Za-z]+)",', source_tree.read("src/platform/fencing_catalog.cpp"))
    text = page("mdnsproxy.conf.5")
    assert len(services) == 22
    assert [word for word in [*settings, *services] if not is_in(word, text)] == []


def test_every_rule_word_is_in_its_page():
    words = re.search(r"kRuleWords = \{([^}]*)\}", source_tree.read("src/config/rules_scanner.h"))[1]
    text = page("mdnsproxy-rules.5")
    assert [word for word in re.findall(r'"(\w+)"', words) if not is_in(word, text)] == []


def literal_blocks(name):
    text = (source_tree.ROOT / "man" / name).read_text(encoding="utf-8")
    return "\n".join(re.findall(r"^\.Bd [^\n]*\n(.*?)^\.Ed", text, re.MULTILINE | re.DOTALL))


def test_the_examples_of_the_pages_are_in_order(tmp_path):
    """Together with the services list that is installed, which the examples name."""
    installed = source_tree.read("packaging/etc/mdnsservice-list.xml")
    (tmp_path / "services").write_text(literal_blocks("mdnsproxy-services.5") + installed)
    (tmp_path / "rules").write_text(literal_blocks("mdnsproxy-rules.5"))
    (tmp_path / "settings").write_text(literal_blocks("mdnsproxy.conf.5"))
    done = subprocess.run([source_tree.BUILD / "mdnsproxy-check", "--services", "services", "--rules", "rules",
                           "--settings", "settings", "--interfaces", "br10,br20,br30"], cwd=tmp_path,
                          capture_output=True, text=True, check=False)
    findings = [line for line in done.stdout.splitlines() if ": warning: " in line or ": error: " in line]
    expected = ("duplicate rule", "is also in service")  # the same printers under two names
    assert [line for line in findings if not any(part in line for part in expected)] == []
    assert "Will be forwarded:" in done.stdout
