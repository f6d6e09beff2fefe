#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Mutation check: changes one condition, constant, text or order at a time and asks whether a test notices.

usage: tools/dev/mutate.py [--count N] [--seed S] [--folders proxy,mdns,...] [--work DIR] [--jobs N] [--list]
                          [--only K,...] [--reuse]

Copies the tree to a scratch folder, builds the tests there once, then for each of N mutants (chosen at random by the
seed, which is printed; those of equivalent_mutants.txt are left out) edits one place, rebuilds and runs the tests that
can notice: the unit tests of the folder; for the engine, the simulation as well; for the DNS-SD library, which is
sockets and timers for the most part, its network tests (root), those of the changed file first, then those that are
quick or have noticed many. A mutant is killed when a test fails or hangs; one that does not compile does not count; one
that nothing notices survives and is printed. Exit status 1 when fewer than 95 of 100 were killed. No mutant changes
only how much blank there is in a text, and none changes the text of a debug trace.
"""

import argparse
import filecmp
import os
import shutil
import signal
import subprocess
import sys
import time

from mutant_tests import COMPILER_FLAGS, FOLDERS, NOT_BUILT, Known, build, run_tests, targets_of
from mutants import ROOT, all_mutants, choose, folder_of, lines_of, place_of

REQUIRED_SHARE = 0.95


def copy_changed(source, target):
    """Copies a file unless the target has these bytes already, so that it is not compiled again."""
    if not os.path.exists(target) or not filecmp.cmp(source, target, shallow=False):
        shutil.copy(source, target)


def prepare(work, jobs, folders, reuse):
    """Returns what is known of the tests."""
    if not reuse:
        shutil.rmtree(work, ignore_errors=True)
    shutil.copytree(ROOT, work, ignore=shutil.ignore_patterns("build", ".git", "out"), copy_function=copy_changed,
                    dirs_exist_ok=True)
    subprocess.run(["cmake", "-S", work, "-B", os.path.join(work, "build"), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                    f"-DCMAKE_CXX_FLAGS_DEBUG={COMPILER_FLAGS}", "-DMDNSPROXY_WERROR=OFF"], check=True,
                   stdout=subprocess.DEVNULL)
    result = build(work, jobs, targets_of(folders))
    if result.returncode != 0:
        sys.exit(result.stdout)
    known = Known(work)
    failure = None if reuse else run_tests(work, jobs, folders, known)
    if failure:
        sys.exit(f"the unmutated tree does not pass: {failure}")
    return known


def try_mutant(work, mutant, jobs, known):
    """How the mutant was noticed, or None when it survived."""
    path = os.path.join(work, mutant.path)
    with open(path, encoding="utf-8") as file:
        original = file.read()
    mutated = original[: mutant.start] + mutant.replacement + original[mutant.end :]
    try:
        with open(path, "w", encoding="utf-8") as file:
            file.write(mutated)
        return run_tests(work, jobs, [folder_of(mutant)], known, mutant.path)
    finally:
        with open(path, "w", encoding="utf-8") as file:
            file.write(original)


def show(mutant):
    for line in lines_of(mutant):
        print("    " + line)


def take_signals():
    """The tests try what signals do by default; a shell starts what runs in the background with some of them
    ignored."""
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGQUIT, signal.SIG_DFL)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--count", type=int, default=200)
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--folders", default=",".join(FOLDERS))
    parser.add_argument("--work", default="/tmp/mdnsproxy-mutants")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--list", action="store_true", help="print the chosen mutants and stop")
    parser.add_argument("--only", help="try these of the chosen mutants only: numbers, separated by commas")
    parser.add_argument("--reuse", action="store_true",
                        help="go on in the work folder of an earlier run; the unmutated tree is not tried again")
    arguments = parser.parse_args()

    folders = arguments.folders.split(",")
    only = [int(number) for number in arguments.only.split(",")] if arguments.only else None
    candidates = list(all_mutants(ROOT, FOLDERS))
    chosen = choose(candidates, arguments.seed, folders, arguments.count)
    print(f"seed {arguments.seed}: {len(chosen)} mutants", flush=True)
    if arguments.list:
        for number, mutant in chosen:
            print(f"{number}: {place_of(mutant)}")
            show(mutant)
        return 0
    take_signals()
    known = prepare(arguments.work, arguments.jobs, folders, arguments.reuse)
    killed, survivors, invalid = 0, [], 0
    for number, mutant in chosen:
        if only is not None and number not in only:
            continue
        noticed = try_mutant(arguments.work, mutant, arguments.jobs, known)
        print(f"{number}: {place_of(mutant)}: {noticed or 'SURVIVED'}", flush=True)
        if noticed is None:
            survivors.append(mutant)
            show(mutant)
        elif noticed == NOT_BUILT:
            invalid += 1
        else:
            killed += 1
    tried = killed + len(survivors)
    print(f"seed {arguments.seed}: {tried} mutants ran, {killed} killed, {len(survivors)} survived; "
          f"{invalid} did not compile and do not count")
    return 0 if tried and killed >= REQUIRED_SHARE * tried else 1


if __name__ == "__main__":
    sys.exit(main())
