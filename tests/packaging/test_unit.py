# SPDX-License-Identifier: MIT
"""The systemd units as systemd's own tools see them. test_package.py runs them."""

import re
import subprocess

import source_tree

UNITS = source_tree.BUILD / "packaging/packaging/systemd"
UNIT = UNITS / "mdnsproxy.service"
# Where this build would install: CMake's own default.
PREFIX = "/usr/local"
# "at most 1.5" is what the project holds itself to; 10 is a service without any restriction.
MOST_EXPOSURE = 1.5


def test_it_is_closed_tight():
    shown = source_tree.run("systemd-analyze", "security", "--offline=true", "--no-pager", UNIT)
    exposure = float(re.search(r"Overall exposure level for mdnsproxy.service: ([\d.]+)", shown)[1])
    assert exposure <= MOST_EXPOSURE, shown


def test_systemd_understands_every_line():
    for unit in sorted(UNITS.iterdir()):
        done = subprocess.run(["systemd-analyze", "verify", "--man=no", unit], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, check=False)
        # The programs are not installed on the machine that this runs on.
        complaints = [line for line in done.stderr.splitlines()
                      if "is not executable: No such file or directory" not in line]
        assert complaints == []


def test_the_programs_that_it_starts_are_those_of_the_package():
    unit = UNIT.read_text(encoding="utf-8")
    programs = re.findall(r"^Exec\w+=[-+]*(\S+)", unit, re.MULTILINE)
    assert programs == ["cp", "sh", "touch", f"{PREFIX}/sbin/mdnsproxy", "touch", "systemctl", "sh", "sh"]
    assert re.findall(r"[\w/]+/mdnsproxy-check", unit) == [f"{PREFIX}/bin/mdnsproxy-check"] * 2
    metrics = (UNITS / "mdnsproxy-metrics.service").read_text(encoding="utf-8")
    assert re.findall(r"^Exec\w+=(\S+)", metrics, re.MULTILINE) == [f"{PREFIX}/bin/mdnsproxyctl"]


def test_standard_output_is_for_nobody_and_standard_error_for_the_journal():
    lines = UNIT.read_text(encoding="utf-8").splitlines()
    assert "StandardOutput=null" in lines and "StandardError=journal" in lines
    assert [line for line in lines if re.match(r"Exec\w+=.*(mdnsproxy-check|cat) ", line)
            and not (">&2'" in line or "--ends-with" in line)] == []


def test_the_rules_come_from_the_file_that_the_manual_names():
    assert "cp /etc/mdnsproxyrule-list.xml /tmp/mdnsproxyrule-list.xml" in UNIT.read_text(encoding="utf-8")
    assert '"/tmp/mdnsproxyrule-list.xml"' in source_tree.read("src/runtime/settings.cpp")
