# SPDX-License-Identifier: MIT
"""systemd-resolved on a host: a resolver and a responder in namespaces of its own, without systemd around it."""

import glob
import ipaddress
import os
import pathlib
import shutil
import subprocess
import tempfile

import driver as d
from testbed import dns, wait_until

# tools/dev/install-packages unpacks the packages there. To install this one would take over the machine's name
# resolution.
UNPACKED = "/var/cache/mdnsproxy-dev"
PROGRAM = f"{UNPACKED}/systemd-resolved/lib/systemd/systemd-resolved"
CONTROL = f"{UNPACKED}/systemd-resolved/usr/bin/resolvectl"
LIBRARY = f"{UNPACKED}/libsystemd-shared/usr/lib/*/systemd/libsystemd-shared-*.so"

CONFIGURATION = "[Resolve]\nMulticastDNS=yes\nLLMNR=no\nDNSStubListener=no\nReadEtcHosts=no\nDNS=\nFallbackDNS=\n"

SERVICE = "[Service]\nName={name}\nType={regtype}\nPort={port}\nTxtText={txt}\n"

BUS = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>unix:path=/run/dbus/system_bus_socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
"""

# It drops its privileges to a user that only the installation of its package would add.
USERS = "root:x:0:0::/root:/bin/sh\nsystemd-resolve:x:64000:64000::/:/usr/sbin/nologin\n"
GROUPS = "root:x:0:\nsystemd-resolve:x:64000:\n"

# The shell stays as the first process of the namespace, since it is the one that is killed together with unshare, and
# everything else with it; systemd-resolved would outlive unshare, because a change of the user cancels that.
START = """
set -e
echo {hostname} >/proc/sys/kernel/hostname
mkdir -p /etc/systemd
mount --bind {directory}/systemd /etc/systemd
mount --bind {directory}/passwd /etc/passwd
mount --bind {directory}/group /etc/group
mount -t tmpfs none /run
mkdir -p /run/dbus /run/systemd/resolve
chown 64000:64000 /run/systemd/resolve
dbus-daemon --config-file={directory}/bus.conf --fork
LD_LIBRARY_PATH={library} SYSTEMD_LOG_LEVEL=debug SYSTEMD_LOG_TARGET=console SYSTEMD_LOG_COLOR=no {program} &
wait
"""

MANAGER = ("org.freedesktop.resolve1", "/org/freedesktop/resolve1", "org.freedesktop.resolve1.Manager")


def _run(command, check=True):
    return subprocess.run(command, check=check, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


class Resolved:
    """systemd-resolved on the near host, with these services from the start: (file name, name, type, port) each. It
    looks up and answers on the link only from `listen` or `publish` on."""

    def __init__(self, link, *services, hostname="gateway"):
        libraries = glob.glob(LIBRARY)
        assert os.access(PROGRAM, os.X_OK) and len(libraries) == 1, (
            f"nothing in {UNPACKED}: run tools/dev/install-packages test")
        self._library = os.path.dirname(libraries[0])
        self.link, self.air = link, link.air()
        self.directory = tempfile.mkdtemp(prefix="dnssd-resolved-")
        os.chmod(self.directory, 0o755)  # its user reads the files
        for name, text in {"systemd/resolved.conf": CONFIGURATION, "bus.conf": BUS, "passwd": USERS,
                           "group": GROUPS}.items():
            self._write(name, text)
        for file, name, regtype, port in services:
            self._write(f"systemd/dnssd/{file}.dnssd",
                        SERVICE.format(name=name, regtype=regtype, port=port, txt="path=/"))
        script = START.format(hostname=hostname, directory=self.directory, library=self._library, program=PROGRAM)
        self._process = self._start(*link.near.command("unshare", "--mount", "--uts", "--pid", "--fork", "--kill-child",
                                                       "--mount-proc", "sh", "-c", script))
        wait_until(lambda: self.ctl("status").returncode == 0, d.DEADLINE, "systemd-resolved on its bus")

    def _write(self, name, text):
        path = f"{self.directory}/{name}"
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)

    def _start(self, *command):
        return self.link.program(*command)

    def _inside(self, *command):
        """A command as one that is run in its namespaces."""
        pid = self._process.pid
        init = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().strip()
        return ("nsenter", "--all", "--target", init, *command)

    def _control(self, *arguments):
        return self._inside("env", f"LD_LIBRARY_PATH={self._library}", CONTROL, "--no-pager", "--legend=no", *arguments)

    def ctl(self, *arguments):
        return _run(self._control(*arguments), check=False)

    def look_up(self, *arguments):
        """What resolvectl prints about something that is found."""
        done = self.ctl(*arguments)
        assert done.returncode == 0, f"{arguments}: {done.stdout}"
        return done.stdout

    def look_up_meanwhile(self, *arguments):
        self._start(*self._control(*arguments))

    def has_cached(self, name, kind):
        """What resolvectl prints about the record if that is in the cache, otherwise nothing."""
        done = self.ctl("query", "--network=no", f"--type={kind}", name)
        return done.stdout if done.returncode == 0 else ""

    def listen(self):
        """Multicast DNS on the link; without a network manager, that is off until somebody asks for it."""
        self.look_up("mdns", "eth0", "yes")

    def wait_announced(self):
        """Waits until it has announced the addresses of its host, over both protocols."""
        for address in ("10.9.0.1", "fd09::1"):
            self.air.wait_for(ipaddress.ip_address(address).reverse_pointer, dns.PTR, d.DEADLINE, sources=self.air.near)

    def publish(self):
        self.listen()
        self.wait_announced()

    def register(self, file, name, regtype, port):
        """A service that comes later."""
        arguments = (file, name, regtype, str(port), "0", "0", "0")  # no priority, no weight, no TXT data
        _run(self._inside("busctl", "call", *MANAGER, "RegisterService", "sssqqqaa{say}", *arguments))

    def unregister(self, file):
        _run(self._inside("busctl", "call", *MANAGER, "UnregisterService", "o", f"{MANAGER[1]}/dnssd/{file}"))

    def close(self):
        self._process.kill()
        self._process.wait()
        shutil.rmtree(self.directory)
