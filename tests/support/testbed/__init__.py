# SPDX-License-Identifier: MIT
"""The vocabulary of all tests in network namespaces, of the benchmarks and of the demonstration: see ../README.md for
what is where.

Everything is a context manager or is closed by the fixture that made it.
"""

from .box import Box
from .browser import Browser
from .client import Client
from .ctl import Ctl
from .daemon import Daemon, mdnsproxy_path, rule, rules_list, services_list
from .device import Device
from .ear import Ear
from .namespace import Namespace
from .network import Host, Link, Network, addresses_on
from .printer import Printer
from .script import Script, scripted_library
from .seed import chosen_seed
from .voice import Voice
from .waiting import let_pass, let_pass_until, stays_true, wait_until

__all__ = ["Box", "Browser", "Client", "Ctl", "Daemon", "Device", "Ear", "Host", "Link", "Namespace", "Network",
           "Printer", "Script", "Voice", "addresses_on", "chosen_seed", "let_pass", "let_pass_until", "mdnsproxy_path",
           "rule", "rules_list", "scripted_library", "services_list", "stays_true", "wait_until"]
