# SPDX-License-Identifier: MIT
"""Containers by podman, with a store of their own, so that those of this machine are left alone."""

import pathlib
import shutil
import subprocess
import tempfile

import source_tree
from testbed import wait_until


# What its runtime takes for a machine's control groups must be of one version; of the second it needs nothing here.
MOUNTS = "mount -t cgroup2 cgroup2 /sys/fs/cgroup && echo ready && exec cat"
# Podman would ask for more than a test machine may be allowed.
LIMITS = ("--ulimit=nofile=1024:1024", "--ulimit=nproc=1024:1024")


class Podman:
    """Its containers are on the network of `namespace`. Its mounts are in a namespace of their own, which ends with
    it."""

    def __init__(self, namespace):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="mdnsproxy-podman-", dir="/var/tmp"))
        self.mounts = subprocess.Popen(  # pylint: disable=consider-using-with
            namespace.command("unshare", "--mount", "sh", "-c", MOUNTS), stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        assert self.mounts.stdout.readline() == b"ready\n"

    def __call__(self, *arguments, namespaces=("--mount", "--net")):
        """Runs a command of podman's, which has to succeed; returns what it wrote."""
        return source_tree.run(
            "nsenter", f"--target={self.mounts.pid}", *namespaces, "podman", "--log-level=error",
            "--root", self.folder / "root", "--runroot", self.folder / "run", "--tmpdir", self.folder / "tmp",
            "--cgroup-manager=cgroupfs", "--events-backend=none", *arguments)

    def import_tar(self, tar, image):
        """An image with these files and nothing else."""
        self("import", "--quiet", tar, image)

    def build(self, context, image, **arguments):
        """By this machine's own network: packages are installed in it."""
        options = [f"--build-arg={name}={value}" for name, value in arguments.items()]
        self("build", "--isolation=chroot", "--network=host", "--pull=never", *options, "--tag", image, context,
             namespaces=("--mount",))

    def run(self, name, image, *options, arguments=()):
        """Starts a container and returns at once."""
        return Container(self, name, image, options, arguments)

    def close(self):
        self("rm", "--all", "--force", "--time=0")
        self.mounts.stdin.close()
        self.mounts.wait()
        shutil.rmtree(self.folder)


class Container:
    def __init__(self, podman, name, image, options, arguments):
        self.podman = podman
        self.name = name
        podman("run", "--detach", "--network=host", "--cgroups=disabled", *LIMITS, "--log-driver=k8s-file", "--name",
               name, *options, image, *arguments)

    def exec(self, *command):
        return self.podman("exec", self.name, *command)

    def signal(self, number):
        self.podman("kill", "--signal", number, self.name)

    def restart(self):
        self.podman("restart", self.name)

    def wait(self, within=10):
        """Its exit status."""
        shown = wait_until(lambda: (state := self._state()).startswith("exited ") and state, within, self.logs)
        return int(shown.split()[1])

    def _state(self):
        return self.podman("inspect", "--format", "{{.State.Status}} {{.State.ExitCode}}", self.name).strip()

    @property
    def init(self):
        """The process, as this machine counts."""
        return int(self.podman("inspect", "--format", "{{.State.Pid}}", self.name))

    def children(self):
        """Those of its init."""
        return [int(pid) for pid in pathlib.Path(f"/proc/{self.init}/task/{self.init}/children").read_text().split()]

    def logs(self):
        return self.podman("logs", self.name)
