# SPDX-License-Identifier: MIT
"""A Debian machine that systemd boots, with a gateway's network: units run exactly as on a real one.

It shares the kernel with this machine and nothing else: it has a root directory, processes, network, devices and a
branch of the cgroup tree of its own, and its kernel settings are read-only. Everything in it dies when the test does.
"""

import os
import pathlib
import subprocess
import tempfile

from testbed import wait_until

INIT = pathlib.Path(__file__).with_name("machine_init.sh")
# Coldplug would wake this machine's real devices; nobody logs in.
MASKED = ("systemd-udev-trigger.service", "systemd-udev-settle.service", "getty.target", "console-getty.service",
          "systemd-logind.service", "systemd-firstboot.service", "apt-daily.timer", "apt-daily-upgrade.timer")
# What could reach beyond the machine.
WITHOUT = "-sys_time,-sys_module,-sys_rawio,-mac_admin,-syslog,-wake_alarm"


class Machine:
    def __init__(self, root, namespace):
        self.root = root
        self.masks = masks_in(root.path)
        for mask in self.masks:
            mask.symlink_to("/dev/null")
        (root.path / "etc/machine-id").write_text("")
        self.cgroup = make_cgroup()
        self.console = open(root.path / "var/log/machine", "wb")  # pylint: disable=consider-using-with
        self.process = subprocess.Popen(  # pylint: disable=consider-using-with
            ["sh", "-c", 'echo $$ >"$0/cgroup.procs" && exec "$@"', self.cgroup,
             "setpriv", "--pdeathsig", "KILL", f"--bounding-set={WITHOUT}", *namespace.command(
                 "unshare", "--mount", "--pid", "--fork", "--kill-child", "--uts", "--ipc", "--cgroup", "sh", INIT,
                 root.path)],
            stdin=subprocess.DEVNULL, stdout=self.console, stderr=self.console)
        try:
            self.pid = wait_until(self._init_pid, 10, "process 1 of the machine")
            wait_until(self.is_up, 120, self.logs)
        except BaseException:
            self.close()
            raise

    def _init_pid(self):
        """systemd, once it is that: unshare's child."""
        assert self.process.poll() is None, self.logs()
        for children in pathlib.Path(f"/proc/{self.process.pid}/task").glob("*/children"):
            for pid in children.read_text().split():
                if os.readlink(f"/proc/{pid}/exe").endswith("/systemd"):
                    return int(pid)
        return None

    def is_up(self):
        return self.status("systemctl is-active multi-user.target") == 0

    # --- what a person with a shell on it does

    def shell(self, command):
        """Runs a command line as root; it has to succeed. Returns its output."""
        done = self._run(command)
        assert done.returncode == 0, f"{command}: status {done.returncode}\n{done.stdout}\n{self.logs()}"
        return done.stdout

    def status(self, command):
        """The exit status of a command line."""
        return self._run(command).returncode

    def output(self, command):
        """What a command line writes, whatever its exit status."""
        return self._run(command).stdout

    def _run(self, command):
        return subprocess.run(["nsenter", f"--target={self.pid}", "--all", "env", "-i",
                               "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C.UTF-8", "DEBIAN_FRONTEND=noninteractive",
                               "HOME=/root", "sh", "-c", f"cd /root && {command}"],
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              errors="replace", check=False)

    def write(self, path, text):
        (self.root.path / path.lstrip("/")).write_text(text, encoding="utf-8")

    # --- the daemon as its unit

    @property
    def daemon_pid(self):
        """As the machine counts; 0 while it does not run."""
        return int(self.shell("systemctl show -P MainPID mdnsproxy"))

    def unit_state(self):
        return self.shell("systemctl show -P ActiveState mdnsproxy").strip()

    def daemon_status_file(self):
        pid = self.daemon_pid
        return self._run(f"cat /proc/{pid}/root/tmp/mdnsproxy.out").stdout if pid else ""

    def wait_until_forwarding(self, other_than=0):
        """Until the daemon (another process than `other_than`) has finished its start-up; returns its process id."""
        wait_until(lambda: self.daemon_pid not in (0, other_than)
                   and self.daemon_status_file().startswith("0\nFinished startup"), 30,
                   lambda: f"the daemon running\n{self.logs()}")
        return self.daemon_pid

    def journal(self, unit="mdnsproxy"):
        return self._run(f"journalctl --no-pager --output=cat --unit={unit}").stdout

    # --- the end

    def logs(self):
        parts = [(self.root.path / "var/log/machine").read_text(errors="replace")]
        if getattr(self, "pid", None):
            parts.append(self._run("systemctl status --no-pager mdnsproxy; journalctl --no-pager | tail -n 100").stdout)
        return "--- machine\n" + "\n".join(parts)

    def close(self):
        """Once is enough; more often does no harm."""
        if self.console.closed:
            return
        self.process.kill()  # and with it process 1 of the machine, and with that everything in it
        self.process.wait()
        self.console.close()
        wait_until(lambda: remove_cgroup(self.cgroup), 10, "an empty cgroup")
        for mask in self.masks:
            mask.unlink()
        (self.root.path / "var/log/machine").unlink()


def masks_in(root):
    """Links to be made: units that must not run, and udev's rules but for the one that tells systemd of a device; they
    would set up devices of this machine when one of them changes."""
    rules = [path.name for path in (root / "lib/udev/rules.d").iterdir() if path.name != "99-systemd.rules"]
    return ([root / "etc/systemd/system" / unit for unit in MASKED] + [root / "etc/udev/rules.d" / name
                                                                       for name in rules])


def make_cgroup():
    """A branch of the version 2 tree, wherever that is mounted."""
    mounts = [line.split() for line in pathlib.Path("/proc/mounts").read_text().splitlines()]
    tree = [fields[1] for fields in mounts if fields[2] == "cgroup2"]
    assert tree, "a test machine needs the cgroup2 file system mounted"
    return pathlib.Path(tempfile.mkdtemp(prefix="mdnsproxy-test-", dir=tree[0]))


def remove_cgroup(branch):
    for directory in [*sorted((path for path in branch.rglob("*") if path.is_dir()), reverse=True), branch]:
        try:
            directory.rmdir()
        except OSError:
            return False
    return True
