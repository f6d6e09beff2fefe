# SPDX-License-Identifier: MIT
"""The vocabulary of the end-to-end tests.

    Network     a gateway and its links, each in a network namespace that vanishes with the test process
    Box         a private file system, process table and syslog for one program on the gateway
    Daemon      mdnsproxy in a box
    Ctl         mdnsproxyctl beside it
    Script      what a scripted DNS-SD library answers the daemon
    Device      a host on a link that says on the air exactly what the test tells it
    Printer     a service published by python3-zeroconf, an implementation that shares nothing with ours
    Browser     what python3-zeroconf finds on a link
    Ear         every multicast DNS packet of a link
    wait_until  the only way of waiting: for a condition, with a deadline
    chosen_seed what chance goes by, so that a run can be repeated

Everything is a context manager or is closed by the fixture that made it.
"""

from .box import Box
from .browser import Browser
from .ctl import Ctl
from .daemon import Daemon, mdnsproxy_path, rule, rules_list, services_list
from .device import Device
from .ear import Ear
from .namespace import Namespace
from .network import Link, Network, addresses_on
from .printer import Printer
from .script import Script, scripted_library
from .seed import chosen_seed
from .waiting import stays_true, wait_until

__all__ = ["Box", "Browser", "Ctl", "Daemon", "Device", "Ear", "Link", "Namespace", "Network", "Printer", "Script",
           "addresses_on", "chosen_seed", "mdnsproxy_path", "rule", "rules_list", "scripted_library", "services_list",
           "stays_true", "wait_until"]
