# SPDX-License-Identifier: MIT
"""Fixtures: a link of two hosts for each file, and drivers that a failing test prints the logs of."""

import contextlib

import pytest

import driver as d
from air import Air
from testbed import Namespace
from testbed.dialogue import Program
from testbed.network import wire
from testbed.scene import pytest_collection_modifyitems, pytest_sessionstart  # noqa: F401


class Link:
    """Two hosts with a veth pair between them:

        near (10.9.0.1, fd09::1) eth0 ---- eth0 far (10.9.0.2, fd09::2)
    """

    def __init__(self, **protocols):
        self.hosts, self.drivers, self.processes, self.airs = [], [], [], []
        try:
            self.near, self.far = self.host("near"), self.host("far")
            wire(self.near, "eth0", self.far, "eth0", **protocols)
            self.near_index, self.far_index = self.near.index("eth0"), self.far.index("eth0")
        except BaseException:
            self.remove()
            raise

    def host(self, name):
        """A host that is there as long as the link, whatever happens."""
        self.hosts.append(Namespace(name))
        return self.hosts[-1]

    def driver(self, host, connect=True, **options):
        driver = d.Driver(host, **options)
        self.drivers.append(driver)
        if connect:
            assert driver.connect() == 0
        return driver

    def publisher(self, **options):
        return self.driver(self.near, **options)

    def looker(self, **options):
        return self.driver(self.far, **options)

    def air(self):
        self.airs.append(Air(self))
        return self.airs[-1]

    def program(self, *command):
        """A program that ends with the test; its output is in `lines`."""
        self.processes.append(Program(command))
        return self.processes[-1]

    def wipe(self):
        """Ends the drivers, so that the next test finds a link on which nothing is published. No sanitizer may have
        complained."""
        for driver in self.drivers:
            driver.kill()
        for process in self.processes:
            process.kill()
            process.wait()
        for air in self.airs:
            air.close()
        reports = "".join(driver.sanitizer_report() for driver in self.drivers)
        self.drivers, self.processes, self.airs = [], [], []
        assert not reports, reports

    def remove(self):
        try:
            self.wipe()
        finally:
            for host in self.hosts:
                host.close()


@pytest.fixture(scope="module")
def module_link():
    link = Link()
    yield link
    link.remove()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    report = outcome.get_result()
    link = item.funcargs.get("link") if hasattr(item, "funcargs") else None
    if report.when == "call" and report.failed and link is not None:
        report.sections.append(("drivers", "\n".join(driver.dump() for driver in link.drivers)))
        report.sections.append(("air", "\n".join(air.story() for air in link.airs)))
        report.sections.append(("processes", "\n".join("\n".join(process.lines) for process in link.processes)))


@pytest.fixture
def link(module_link):
    yield module_link
    module_link.wipe()


@pytest.fixture
def own_link():
    """Makes links of the test's own, for what would spoil the shared one."""
    with contextlib.ExitStack() as links:
        def make(**protocols):
            one = Link(**protocols)
            links.callback(one.remove)
            return one

        yield make
