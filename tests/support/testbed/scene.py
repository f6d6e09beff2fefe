# SPDX-License-Identifier: MIT
"""What every test in network namespaces has: a network, things that are closed at the end, and all logs when it fails.

A folder's conftest.py takes from here, by name, what its tests are to have. This is the one module of the vocabulary
that needs pytest, and therefore no part of what `import testbed` brings.
"""

import os

import pytest

from .browser import Browser
from .daemon import Daemon, rule, rules_list
from .device import Device
from .ear import Ear
from .namespace import Namespace
from .network import Network
from .printer import Printer
from .script import Script, scripted_library


class Scene:
    """One test's network and everything on it. Closed in reverse order; on a failure each part tells its story."""

    def __init__(self):
        self.parts = []

    def keep(self, part):
        self.parts.append(part)
        return part

    # --- the vocabulary, kept

    def network(self, *names, **how):
        return self.keep(Network(*names, **how))

    def daemon(self, namespace, *rules, **how):
        return self.keep(Daemon(namespace, rules_list(*rules), **how))

    def scripted_daemon(self, *rules, **how):
        """The daemon over the scripted library, on a gateway with the interfaces a and b. Its script is
        `daemon.script`."""
        namespace = self.keep(Namespace("gateway"))
        namespace.run("ip link add name a type veth peer name b")
        daemon = self.keep(Daemon(namespace, rules_list(*rules), library=scripted_library(),
                                          environment={"MDNSPROXY_SCRIPT": "/run/script"}, **how))
        daemon.script = self.keep(Script(daemon.box))
        return daemon

    def printer(self, link, *arguments, **how):
        return self.keep(Printer(link, *arguments, **how))

    def device(self, link, *arguments, **how):
        return self.keep(Device(link, *arguments, **how))

    def browser(self, link, *arguments, **how):
        return self.keep(Browser(link, *arguments, **how))

    def ear(self, link):
        return self.keep(Ear(link))

    # --- the end

    def stories(self):
        return [part.logs() if hasattr(part, "logs") else part.story() for part in self.parts
                if hasattr(part, "logs") or hasattr(part, "story")]

    def close(self):
        for part in reversed(self.parts):
            part.close()


@pytest.fixture
def scene(request):
    made = Scene()
    request.node.scene = made
    yield made
    made.close()


@pytest.fixture
def net(scene, request):
    """The gateway between link a and link b, or the links that the file names: LINKS = "a", "b", "c"."""
    return scene.network(*getattr(request.module, "LINKS", ("a", "b")))


@pytest.fixture
def daemon(scene, net, request):
    """mdnsproxy on the gateway, running, with a state file. It forwards _ipp._tcp from a to b, or has the rules that
    the file names: RULES = (rule(...), ...)."""
    rules = getattr(request.module, "RULES", [rule("_ipp._tcp", "a", "b")])
    return scene.daemon(net.gateway, *rules, state_file=True).start_and_wait()


@pytest.fixture
def ear(scene, net):
    """An ear on link b, from the beginning."""
    return scene.ear(net["b"])


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    report = (yield).get_result()
    if report.failed and call.when == "call" and hasattr(item, "scene"):
        report.sections.append(("logs", "\n".join(item.scene.stories())))


def pytest_collection_modifyitems(items):
    """A test that cannot run is a failure, so nothing here may be skipped."""
    for item in items:
        for mark in ("skip", "skipif", "xfail"):
            assert item.get_closest_marker(mark) is None, f"{item.nodeid} is marked {mark}"


def pytest_sessionstart():
    if os.geteuid() != 0:
        pytest.exit("these tests make network namespaces, which needs root", returncode=3)
