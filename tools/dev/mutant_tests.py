# SPDX-License-Identifier: MIT
"""The tests that can notice a mutant: which those of a folder are, how they are built and run, and in which order."""

import json
import os
import pathlib
import signal
import subprocess
import time

# How long a test may take before it counts as hung, in seconds and as a multiple of what it took when it passed.
TIMEOUT_UNKNOWN = 300
TIMEOUT_LEAST = 60
TIMEOUT_FACTOR = 5

# The test programs that can notice a change in a folder of src.
PROGRAMS = {
    "platform": ["platform_test", "config_test", "proxy_test"],
    "runtime": ["runtime_test", "config_test", "proxy_test"],
    "tables": ["tables_test", "config_test", "proxy_test"],
    "config": ["scanners_test", "config_test", "check_test", "check_agreement_test", "check_installation_test"],
    "proxy": ["proxy_test"],
    "state": ["state_test"],
    "mdns": ["mdns_unit_test", "simulation_test", "dnssd_unit_test"],
    "dnssd": ["dnssd_unit_test", "check_test"],
}
# Folders whose code for the most part runs behind sockets only, and what the network tests need beside the test
# programs.
NETWORK_FOLDERS = ["dnssd"]
NETWORK_TARGETS = ["dns_sd", "dns_sd_driver", "dns_sd_set_clock"]
NOT_BUILT = "did not compile"
LIKE_NAME = 4  # so many letters in common: test_links.py tests link_monitor.cpp
# As many lives as are worth their time: those that notice do so early. Freed memory is overwritten at once.
ENVIRONMENT = {**os.environ, "MDNSPROXY_TEST_LIVES": "100",
               "GLIBC_TUNABLES": "glibc.malloc.tcache_count=0:glibc.malloc.perturb=165"}
# Fast enough for many lives, and with the standard library's checks: what the sanitizers would find is to be found.
COMPILER_FLAGS = "-O1 -D_GLIBCXX_ASSERTIONS"
FOLDERS = list(PROGRAMS)


def targets_of(folders):
    programs = sorted({program for folder in folders for program in PROGRAMS[folder]})
    return programs + (NETWORK_TARGETS if set(folders) & set(NETWORK_FOLDERS) else [])


def build(work, jobs, targets):
    return subprocess.run(
        ["cmake", "--build", os.path.join(work, "build"), "-j", str(jobs), "--target", *targets],
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)


class Known:
    """What is known of the tests: how long each took when it passed, written down for a later run in the same work
    folder, and how many mutants it has noticed."""

    def __init__(self, work):
        self.file = os.path.join(work, "build", "test_seconds.json")
        self.seconds, self.noticed = {}, {}
        if os.path.exists(self.file):
            with open(self.file, encoding="utf-8") as file:
                self.seconds = json.load(file)

    def timeout(self, name):
        return max(TIMEOUT_LEAST, TIMEOUT_FACTOR * self.seconds[name]) if name in self.seconds else TIMEOUT_UNKNOWN

    def add(self, name, noticed, seconds):
        if noticed:
            self.noticed[name] = self.noticed.get(name, 0) + 1
            return
        self.seconds[name] = seconds
        with open(self.file, "w", encoding="utf-8") as file:
            json.dump(self.seconds, file)

    def ordered(self, names, changed):
        """Those that are named like the changed source first, then those that notice most in their time."""
        stem = pathlib.Path(changed).stem

        def rank(name):
            is_own = len(os.path.commonprefix([name.removeprefix("test_"), stem])) >= LIKE_NAME
            return not is_own, self.seconds.get(name, 0) / (1 + self.noticed.get(name, 0)), name

        return sorted(names, key=rank)


def outcome(name, command, known, work):
    """What is wrong with the test; None when it passes."""
    silent = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    begun = time.monotonic()
    with subprocess.Popen(command, **silent, cwd=work, env=ENVIRONMENT, start_new_session=True) as process:
        try:
            noticed = f"{name} failed" if process.wait(known.timeout(name)) != 0 else None
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            noticed = f"{name} hung"
    known.add(name, noticed, time.monotonic() - begun)
    return noticed


def run_tests(work, jobs, folders, known, changed=""):
    """What noticed the change of this source; None when everything passes. The cheapest tests come first; nothing is
    built or runs behind one that notices."""
    programs = dict.fromkeys(program for folder in folders for program in PROGRAMS[folder])
    for program in programs:
        if build(work, jobs, [program]).returncode != 0:
            return NOT_BUILT
        command = [os.path.join(work, "build", "tests", program), "--gtest_brief=1", "--gtest_filter=-Growth.*"]
        noticed = outcome(program, command, known, work)
        if noticed:
            return noticed
    if not set(folders) & set(NETWORK_FOLDERS):
        return None
    built = build(work, jobs, NETWORK_TARGETS).returncode == 0
    return run_network_tests(work, known, changed) if built else NOT_BUILT


def run_network_tests(work, known, changed):
    build_directory = os.path.join(work, "build")
    ENVIRONMENT.update(DNS_SD_DRIVER=os.path.join(build_directory, "tests/dns_sd_driver"),
                       DNS_SD_LIBRARY=os.path.join(build_directory, "libdns_sd.so.1.0.0"),
                       DNS_SD_SET_CLOCK=os.path.join(build_directory, "tests/dns_sd_set_clock.so"),
                       PYTHONDONTWRITEBYTECODE="1")
    folder = os.path.join(work, "tests", "dnssd")
    names = [name for name in os.listdir(folder) if name.startswith("test_") and name.endswith(".py")]
    for name in known.ordered(names, changed):
        command = ["/usr/bin/python3", "-m", "pytest", "-q", "-x", "-p", "no:cacheprovider"]
        command.append(os.path.join(folder, name))
        # Twice, since on a busy machine a test of this kind fails now and then without a reason.
        if outcome(name, command, known, work) and (noticed := outcome(name, command, known, work)):
            return noticed
    return None
