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
import json
import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
EQUIVALENTS = os.path.join("tools", "dev", "equivalent_mutants.txt")
REQUIRED_SHARE = 0.95
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

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<preprocessor>^[ \t]*\#(?:[^\n\\]|\\\n|\\.)*)
      | (?P<string>"(?:[^"\\\n]|\\.)*")
      | (?P<char>'(?:[^'\\\n]|\\.)+')
      | (?P<number>\b(?:0[xX][0-9a-fA-F]+|\d(?:'?\d)*)[uUlL]*\b)
      | (?P<word>[A-Za-z_]\w*)
      | (?P<operator><=>|->|::|<<=|>>=|<<|>>|<=|>=|==|!=|&&|\|\||\+\+|--|[-+*/%&|^!<>=?:;,.(){}\[\]~])
    """,
    re.VERBOSE | re.MULTILINE | re.DOTALL,
)

SWAPPED = {"==": "!=", "!=": "==", "<=": "<", ">=": ">", "&&": "||", "||": "&&"}
# Between these an angle bracket is a comparison, elsewhere it may open a template's arguments.
COMPARED = re.compile(r" [<>] ")


# Two declarations in another order are the same program.
DECLARATION = re.compile(r"^ +[A-Za-z_][\w:]*(?: long)?[ *&]+\w+(?:\[\w+\])?(?: = [^;()]*(?:\{[^;]*\})?| = "
                         r"\{[^;]*\})?;$")


class Mutant:
    def __init__(self, path, kind, start, end, replacement):
        self.path, self.kind, self.start, self.end, self.replacement = path, kind, start, end, replacement


# A letter or digit that is part of neither an escape nor a conversion.
LETTER = re.compile(
    r"(?>(?:\\(?:x[0-9a-fA-F]+|[0-7]+|.)|%[-+ #0-9.*hlLqjzt]*[a-zA-Z%]|[^A-Za-z0-9\\%])*)([A-Za-z0-9])")


def string_mutant(text):
    """A text with its first letter or digit changed; None for one that has none."""
    letter = LETTER.match(text, 1)
    if not letter:
        return None
    at = letter.start(1)
    return text[:at] + ("X" if text[at] != "X" else "Y") + text[at + 1:]


def token_mutants(path, source):
    for match in TOKEN.finditer(source):
        kind, text = match.lastgroup, match.group()
        if kind == "number":
            digits = text.rstrip("uUlL").replace("'", "")
            value = int(digits, 8) if re.fullmatch("0[0-7]+", digits) else int(digits, 0)
            yield Mutant(path, "constant", match.start(), match.end(), str(value + 1) + text[len(text.rstrip("uUlL")):])
        elif kind == "string":
            changed = string_mutant(text)
            if changed:
                yield Mutant(path, "text", match.start(), match.end(), changed)
        elif kind == "operator" and text in SWAPPED and source[match.start() - 1] == " ":  # "Message&&" is a type
            yield Mutant(path, "condition", match.start(), match.end(), SWAPPED[text])
        elif kind == "operator" and text in "<>" and COMPARED.match(source[match.start() - 1 : match.end() + 1] or ""):
            yield Mutant(path, "condition", match.start(), match.end(), text + "=")
        elif kind == "word" and text in ("true", "false"):
            yield Mutant(path, "constant", match.start(), match.end(), "false" if text == "true" else "true")
        elif kind == "word" and text in ("LOG_DEBUG", "LOG_ERR", "LOG_WARNING", "LOG_CRIT"):
            yield Mutant(path, "constant", match.start(), match.end(), "LOG_ERR" if text != "LOG_ERR" else "LOG_DEBUG")


STATEMENT = re.compile(r"^(?P<indent> +)(?!return\b|break;|continue;|case |const |auto |char |int |std::|static "
                       r")[^\s/#{}].*;$")


def order_mutants(path, source):
    """Two neighbouring one-line statements of one block, exchanged."""
    offset = 0
    lines = source.splitlines(keepends=True)
    for first, second in zip(lines, lines[1:]):
        one, two = STATEMENT.match(first.rstrip("\n")), STATEMENT.match(second.rstrip("\n"))
        declared = DECLARATION.match(first.rstrip("\n")) or DECLARATION.match(second.rstrip("\n"))
        if one and two and one["indent"] == two["indent"] and first != second and not declared:
            yield Mutant(path, "order", offset, offset + len(first) + len(second), second + first)
        offset += len(first)


def is_static_text(source, mutant):
    """A static_assert's message and the like: nothing at run time depends on it."""
    line_start = source.rfind("\n", 0, mutant.start) + 1
    return "static_assert" in source[line_start : mutant.start] or "extern \"C\"" in source[line_start : mutant.end + 1]


def is_trace(source, mutant):
    """A text of a debug trace."""
    statement = max(source.rfind(end, 0, mutant.start) for end in (";\n", "{\n", "}\n", ":\n"))
    return mutant.kind == "text" and "log_message(LOG_DEBUG" in source[statement : mutant.start]


def all_mutants(root, folders):
    for folder in folders:
        for path in sorted(pathlib.Path(root, "src", folder).rglob("*.cpp")):
            path = str(path.relative_to(root))
            with open(os.path.join(root, path), encoding="utf-8") as file:
                source = file.read()
            for mutant in list(token_mutants(path, source)) + list(order_mutants(path, source)):
                if not is_static_text(source, mutant) and not is_trace(source, mutant):
                    yield mutant


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


def folder_of(mutant):
    return mutant.path.split(os.sep)[1]


def lines_of(mutant):
    """What it takes away and what it puts there: "-line", "+line" ..."""
    with open(os.path.join(ROOT, mutant.path), encoding="utf-8") as file:
        original = file.read()
    begin = original.rfind("\n", 0, mutant.start) + 1
    end = original.find("\n", mutant.end - 1)
    changed = original[begin : mutant.start] + mutant.replacement + original[mutant.end : end]
    return (["-" + line for line in original[begin:end].rstrip("\n").split("\n")] +
            ["+" + line for line in changed.rstrip("\n").split("\n")])


def show(mutant):
    for line in lines_of(mutant):
        print("    " + line)


def place_of(mutant):
    """Its file and line, and what kind of change it is."""
    with open(os.path.join(ROOT, mutant.path), encoding="utf-8") as file:
        line = file.read().count("\n", 0, mutant.start) + 1
    return f"{mutant.path}:{line} {mutant.kind}"


def choose(candidates, seed, folders, count):
    """The first mutants of the folders in the order that the seed gives to all candidates, each with its number in that
    order. So a mutant keeps its number whichever folders are asked for and whichever equivalents become known."""
    order = list(range(len(candidates)))
    random.Random(seed).shuffle(order)
    shuffled = [candidates[index] for index in order]
    kept = set(without_equivalents(candidates))
    wanted = [(number, mutant) for number, mutant in enumerate(shuffled)
              if mutant in kept and folder_of(mutant) in folders]
    return wanted[:count]


def without_equivalents(candidates):
    """Leaves out the mutants of EQUIVALENTS; one of those that is none ends the program."""
    with open(os.path.join(ROOT, EQUIVALENTS), encoding="utf-8") as file:
        blocks = [block.splitlines()[1:] for block in file.read().split("\n\n")[1:]]
    known = {tuple([block[0], *block[1:]]) for block in blocks}
    kept, found = [], set()
    for mutant in candidates:
        key = (mutant.path, *lines_of(mutant))
        if key in known:
            found.add(key)
        else:
            kept.append(mutant)
    for stale in known - found:
        sys.exit(f"{EQUIVALENTS}: no such mutant: {stale}")
    return kept


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
