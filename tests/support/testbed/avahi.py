# SPDX-License-Identifier: MIT
"""avahi-daemon, another implementation: as a responder on a link, or as a reflector between links."""

from .box import Box
from .waiting import wait_until

PROGRAM = "/usr/sbin/avahi-daemon"
# The package's settings, but for D-Bus, which a box has not, and what it says of the machine itself.
_USUAL = {"server": {"use-ipv4": "yes", "use-ipv6": "yes", "enable-dbus": "no"},
          "publish": {"publish-workstation": "no", "publish-hinfo": "no"}}


def service_file(name, **ports):
    """The text of a file of services of one name: service_file("Files", _ssh="4711") for _ssh._tcp."""
    services = "".join(f"<service><type>{kind}._tcp</type><port>{port}</port></service>"
                       for kind, port in ports.items())
    return f"<service-group><name>{name}</name>{services}</service-group>\n"


class Avahi:
    """`services`: the texts of service files. `sections` are those of its configuration, each a dictionary, beside the
    usual settings: server={"host-name": "printer"}, reflector={"enable-reflector": "yes"}."""

    def __init__(self, namespace, services=(), **sections):
        self.box = Box(namespace, "avahi-daemon")
        self.program = None
        self.box.path("/etc/avahi/services").mkdir(parents=True)
        self.box.path("/run/avahi-daemon").mkdir()
        self.box.write("/etc/avahi/avahi-daemon.conf", _configuration(sections))
        for number, text in enumerate(services):
            self.box.write(f"/etc/avahi/services/{number}.service", text)

    def start(self, within=20):
        """Starts it and waits until it is at work."""
        self.program = self.box.start(PROGRAM, "--no-drop-root", "--no-chroot", "--no-rlimits", by_init=True)
        wait_until(lambda: "Server startup complete" in self.said, within, "the start of avahi-daemon")
        return self

    def establishes(self, name, within=10):
        """Waits until the service has that name for sure."""
        wait_until(lambda: f'Service "{name}"' in self.said and "successfully established" in self.said, within,
                   lambda: f"avahi-daemon's own service {name}; {self.said}")

    @property
    def said(self):
        return self.box.output() + "".join(line.text + "\n" for line in self.box.syslog)

    def logs(self):
        return self.box.logs()

    def close(self):
        self.box.close()


def _configuration(sections):
    whole = {name: {**_USUAL.get(name, {}), **sections.get(name, {})} for name in {**_USUAL, **sections}}
    return "".join(f"[{name}]\n" + "".join(f"{key}={value}\n" for key, value in settings.items())
                   for name, settings in whole.items())
