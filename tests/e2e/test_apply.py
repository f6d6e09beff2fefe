# SPDX-License-Identifier: MIT
"""`mdnsproxyctl apply` with a stand-in for systemctl, and a process that only claims to be the daemon.

    [ mdnsproxyctl apply ] -- systemctl -- [ sleep ]      interfaces a and b

tests/packaging has it with systemd and the daemon.
"""

import fcntl
import os
import types

import pytest
from testbed import Box, Ctl, Namespace, rule, wait_until

INSTALLED = "/etc/mdnsproxyrule-list.xml"
FILE = "/tmp/new.xml"
OLD = "<!-- old -->\n" + rule("_ipp._tcp", "a", "b")
NEW = "<!-- new -->\n" + rule("_ipp._tcp", "a", "b") + rule("_ssh._tcp", "b", "a")
OWNER = 1234

# With _never._tcp in the list the daemon ends, with _slow._tcp it does not say that it runs.
SYSTEMCTL = f"""#!/bin/sh
echo "$PATH $*" >>/tmp/calls
case "$1" in
  show)
    cat /tmp/unit
    ;;
  reload-or-restart)
    pkill -x sleep
    rm -f /tmp/mdnsproxy.out
    number=$(wc -l </tmp/calls)
    if grep -q _never._tcp {INSTALLED}; then
      printf 'MainPID=0\\nExecMainStatus=88\\nActiveState=activating\\nSubState=auto-restart\\n' >/tmp/unit
      echo "InvocationID=$number" >>/tmp/unit
    else
      sleep 1000 >/dev/null 2>&1 &
      grep -q _slow._tcp {INSTALLED} && echo 1 >/tmp/mdnsproxy.out || echo 0 >/tmp/mdnsproxy.out
      printf 'MainPID=%s\\nActiveState=active\\nInvocationID=%s\\n' "$!" "$number" >/tmp/unit
    fi
    ;;
esac
"""


@pytest.fixture
def box(scene, tmp_path):
    namespace = scene.keep(Namespace("gateway"))
    namespace.run("ip link add name a type veth peer name b")
    namespace.run("ip link set dev a up")
    namespace.run("ip link set dev b up")
    made = scene.keep(Box(namespace))
    made.write("/etc/mdnsservice-list.xml", "<!-- none -->\n")
    made.write(INSTALLED, OLD)
    os.chown(made.path(INSTALLED), OWNER, OWNER)
    made.path(INSTALLED).chmod(0o644)
    (tmp_path / "systemctl").write_text(SYSTEMCTL)
    (tmp_path / "systemctl").chmod(0o755)
    made.install(tmp_path / "systemctl")
    made.run("mount", "--bind", "/mnt/program/systemctl", "/usr/bin/systemctl")
    made.path("/run/systemd/system").mkdir(parents=True)
    made.write("/tmp/unit", "MainPID=0\nActiveState=inactive\nInvocationID=\n")
    return made


@pytest.fixture
def ctl(box):  # pylint: disable=redefined-outer-name
    return Ctl(types.SimpleNamespace(box=box))


# pylint: disable=redefined-outer-name


def reloads(box):
    return [line for line in (box.read("/tmp/calls") or "").splitlines() if "reload-or-restart" in line]


def given(box, text):
    box.write(FILE, text)
    return FILE


def test_a_list_is_installed_and_the_daemon_runs_with_it(box, ctl):
    before = box.path(INSTALLED).stat()
    status, answer = ctl.json("apply", given(box, NEW))
    assert (status, answer["outcome"]) == (0, "applied"), answer
    assert box.read(INSTALLED) == NEW
    after = box.path(INSTALLED).stat()
    assert (after.st_uid, after.st_gid, after.st_mode) == (OWNER, OWNER, before.st_mode)
    assert after.st_ino != before.st_ino, "another file has taken its name"
    assert answer["difference"] == [{"change": "-", "line": 1, "text": "<!-- old -->"},
                                    {"change": "+", "line": 1, "text": "<!-- new -->"},
                                    {"change": "+", "line": 3, "text": rule("_ssh._tcp", "b", "a").rstrip("\n")}]
    assert {"type": "_ssh._tcp", "from": "b", "to": "a"} in answer["begin"]
    assert len(reloads(box)) == 1
    assert sorted(path.name for path in box.path("/etc").glob("mdnsproxyrule*")) == ["mdnsproxyrule-list.xml"]


def test_the_callers_path_decides_nothing(box, ctl):
    evil = box.path("/tmp/evil")
    evil.mkdir()
    (evil / "systemctl").write_text("#!/bin/sh\ntouch /tmp/was-run\n")
    (evil / "systemctl").chmod(0o755)
    ctl("status")  # has the program there
    process = box.start("env", "PATH=/tmp/evil:/usr/bin:/bin", "/mnt/program/mdnsproxyctl", "apply", given(box, NEW))
    process.wait(10)
    assert process.exit_status == 0 and not box.path("/tmp/was-run").exists()
    assert all(line.startswith("/usr/sbin:/usr/bin:/sbin:/bin ") for line in box.read("/tmp/calls").splitlines())


def test_without_a_file_the_installed_one_is_applied(box, ctl):
    before = box.path(INSTALLED).stat().st_ino
    status, answer = ctl.json("apply")
    assert (status, answer["outcome"], answer["difference"]) == (0, "applied", [])
    assert (len(reloads(box)), box.path(INSTALLED).stat().st_ino) == (1, before)


def test_a_dry_run_only_looks(box, ctl):
    before = box.path(INSTALLED).stat().st_ino
    status, text = ctl("apply", given(box, NEW), "--dry-run")
    assert status == 0 and text.splitlines()[:2] == ["-1  <!-- old -->", "+1  <!-- new -->"]
    assert "forwarded from now on: _ssh._tcp from b to a" in text and text.endswith("Nothing was changed.\n")
    assert (reloads(box), box.path(INSTALLED).stat().st_ino) == ([], before)


@pytest.mark.parametrize("text, line", [
    (rule("Unknown", "a", "b", literal=False), 1), ("\n" + rule("_ipp._tcp", "a", "c"), 2)])
def test_a_list_with_a_mistake_is_not_installed(box, ctl, text, line):
    status, shown = ctl("apply", given(box, text))
    assert (status, shown.startswith(f"{FILE}:{line}:")) == (2, True), shown
    assert shown.endswith("The daemon would end with this file; nothing was changed.\n")
    assert (box.read(INSTALLED), reloads(box)) == (OLD, [])


def test_what_the_daemons_user_cannot_read_is_not_applied(box, ctl):
    box.path(INSTALLED).chmod(0o600)
    status, answer = ctl.json("apply", given(box, NEW))
    assert (status, answer["outcome"], box.read(INSTALLED)) == (2, "rejected", OLD)
    assert "chmod o+r /etc/mdnsproxyrule-list.xml" in answer["detail"]
    box.path(INSTALLED).chmod(0o644)
    box.path("/etc/mdnsservice-list.xml").chmod(0o600)
    status, answer = ctl.json("apply", given(box, NEW))
    assert (status, answer["findings"][0]["status"]) == (2, 110)


def test_the_old_list_comes_back_when_the_daemon_ends(box, ctl):
    status, answer = ctl.json("apply", given(box, rule("_never._tcp", "a", "b")))
    assert (status, answer["outcome"]) == (2, "restored"), answer
    assert "the daemon ended with exit status 88" in answer["detail"] and "runs with the old one" in answer["detail"]
    after = box.path(INSTALLED).stat()
    assert (box.read(INSTALLED), after.st_uid, after.st_mode & 0o777) == (OLD, OWNER, 0o644)
    assert len(reloads(box)) == 2


def test_a_first_list_that_fails_is_taken_away(box, ctl):
    box.path(INSTALLED).unlink()
    assert ctl.json("apply", given(box, rule("_never._tcp", "a", "b")))[1]["outcome"] == "restored"
    assert box.read(INSTALLED) is None


def test_a_signal_takes_everything_back(box, ctl):
    running = ctl.start("apply", given(box, rule("_slow._tcp", "a", "b")), "--json")
    wait_until(lambda: len(reloads(box)) == 1 and "=active" in box.read("/tmp/unit"), 10, box.logs)
    box.run("pkill", "-TERM", "-x", "mdnsproxyctl")
    assert running.exit_status(within=10) == 2
    assert (box.read(INSTALLED), len(reloads(box))) == (OLD, 2)


def test_without_systemd_it_says_what_to_do(box, ctl):
    box.path("/run/systemd/system").rmdir()
    status, text = ctl("apply", given(box, NEW))
    assert (status, box.read(INSTALLED), reloads(box)) == (1, NEW, [])
    assert "restart the daemon by what has started it" in text


def test_one_at_a_time(box, ctl):
    directory = os.open(box.path("/etc"), os.O_RDONLY)
    fcntl.flock(directory, fcntl.LOCK_EX)
    status, answer = ctl.json("apply", given(box, NEW))
    os.close(directory)
    assert (status, answer["outcome"], box.read(INSTALLED)) == (2, "failed", OLD)


def test_only_root_may(box, ctl):
    status, text = Ctl(types.SimpleNamespace(box=box), user=65534)("apply", given(box, NEW))
    assert (status, text, reloads(box)) == (2, "Only root may do that.\n", [])
