#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Mutation check: changes one condition, constant, text or order at a time and asks whether a test notices.

usage: tools/dev/mutate.py [--count N] [--seed S] [--folders proxy,config,...] [--work DIR] [--jobs N] [--list] [--only K]

Copies the tree to a scratch folder, builds the unit tests there once, then for each of N mutants (chosen at random by the seed,
which is printed; those of equivalent_mutants.txt are left out) edits one place, rebuilds and runs the unit tests. A mutant is
killed when the build or a test fails or the tests hang; one that nothing notices survives and is printed. Exit status 1 when
fewer than 95 of 100 were killed.
"""

import argparse
import json
import os
import random
import re
import shutil
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
EQUIVALENTS = os.path.join("tools", "dev", "equivalent_mutants.txt")
FOLDERS = ["proxy", "config", "tables", "runtime"]
REQUIRED_SHARE = 0.95
TEST_TIMEOUT_SECONDS = 120

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<preprocessor>^[ \t]*\#(?:[^\n\\]|\\\n|\\.)*)
      | (?P<string>"(?:[^"\\\n]|\\.)*")
      | (?P<char>'(?:[^'\\\n]|\\.)+')
      | (?P<number>\b(?:0[xX][0-9a-fA-F]+|\d+)[uUlL]*\b)
      | (?P<word>[A-Za-z_]\w*)
      | (?P<operator><=>|->|::|<<=|>>=|<<|>>|<=|>=|==|!=|&&|\|\||\+\+|--|[-+*/%&|^!<>=?:;,.(){}\[\]~])
    """,
    re.VERBOSE | re.MULTILINE | re.DOTALL,
)

SWAPPED = {"==": "!=", "!=": "==", "<=": "<", ">=": ">", "&&": "||", "||": "&&"}
# Between these an angle bracket is a comparison, elsewhere it may open a template's arguments.
COMPARED = re.compile(r" [<>] ")


# Two declarations in another order are the same program.
DECLARATION = re.compile(r"^ +[A-Za-z_][\w:]*(?: long)?[ *&]+\w+(?:\[\w+\])?(?: = [^;()]*(?:\{[^;]*\})?| = \{[^;]*\})?;$")


class Mutant:
    def __init__(self, path, kind, start, end, replacement):
        self.path, self.kind, self.start, self.end, self.replacement = path, kind, start, end, replacement


def string_mutant(text):
    """A text with one blank doubled or, without blanks, one letter more; None for a text of one character or less."""
    inner = text[1:-1]
    if len(inner) < 2:
        return None
    return '"' + (inner.replace(" ", "  ", 1) if " " in inner else inner + "x") + '"'


def token_mutants(path, source):
    for match in TOKEN.finditer(source):
        kind, text = match.lastgroup, match.group()
        if kind == "number":
            value = int(text.rstrip("uUlL"), 0)
            suffix = text[len(text.rstrip("uUlL")):]
            yield Mutant(path, "constant", match.start(), match.end(), str(value + 1) + suffix)
        elif kind == "string":
            changed = string_mutant(text)
            if changed:
                yield Mutant(path, "text", match.start(), match.end(), changed)
        elif kind == "operator" and text in SWAPPED:
            yield Mutant(path, "condition", match.start(), match.end(), SWAPPED[text])
        elif kind == "operator" and text in "<>" and COMPARED.match(source[match.start() - 1 : match.end() + 1] or ""):
            yield Mutant(path, "condition", match.start(), match.end(), text + "=")
        elif kind == "word" and text in ("true", "false"):
            yield Mutant(path, "constant", match.start(), match.end(), "false" if text == "true" else "true")
        elif kind == "word" and text in ("LOG_DEBUG", "LOG_ERR", "LOG_WARNING", "LOG_CRIT"):
            yield Mutant(path, "constant", match.start(), match.end(), "LOG_ERR" if text != "LOG_ERR" else "LOG_DEBUG")


STATEMENT = re.compile(r"^(?P<indent> +)(?!return\b|break;|continue;|case |const |auto |char |int |std::|static )[^\s/#{}].*;$")


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


def all_mutants(root, folders):
    for folder in folders:
        directory = os.path.join(root, "src", folder)
        for name in sorted(os.listdir(directory)):
            if not name.endswith(".cpp"):
                continue
            path = os.path.join("src", folder, name)
            with open(os.path.join(root, path), encoding="utf-8") as file:
                source = file.read()
            for mutant in list(token_mutants(path, source)) + list(order_mutants(path, source)):
                if not is_static_text(source, mutant):
                    yield mutant


def build(work, jobs):
    return subprocess.run(
        ["cmake", "--build", os.path.join(work, "build"), "-j", str(jobs), "--target", *unit_targets(work)],
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)


def unit_targets(work):
    with open(os.path.join(work, "unit_targets.json"), encoding="utf-8") as file:
        return json.load(file)


def run_tests(work):
    for target in unit_targets(work):
        program = os.path.join(work, "build", "tests", target)
        try:
            result = subprocess.run([program, "--gtest_brief=1"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                    stdin=subprocess.DEVNULL, timeout=TEST_TIMEOUT_SECONDS, check=False, cwd=work)
        except subprocess.TimeoutExpired:
            return f"{target} hung"
        if result.returncode != 0:
            return f"{target} failed"
    return None


def prepare(work, jobs):
    shutil.rmtree(work, ignore_errors=True)
    shutil.copytree(ROOT, work, ignore=shutil.ignore_patterns("build*", ".git", "out"))
    names = []
    for folder, _, files in os.walk(os.path.join(work, "tests", "unit")):
        if "CMakeLists.txt" in files and os.path.basename(folder) in FOLDERS:
            with open(os.path.join(folder, "CMakeLists.txt"), encoding="utf-8") as file:
                names += re.findall(r"mdnsproxy_unit_test\(\s*(\w+)", file.read())
    with open(os.path.join(work, "unit_targets.json"), "w", encoding="utf-8") as file:
        json.dump(names, file)
    subprocess.run(["cmake", "-S", work, "-B", os.path.join(work, "build"), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                    "-DMDNSPROXY_WERROR=OFF"], check=True, stdout=subprocess.DEVNULL)
    result = build(work, jobs)
    if result.returncode != 0:
        sys.exit(result.stdout)
    failure = run_tests(work)
    if failure:
        sys.exit(f"the unmutated tree does not pass: {failure}")


def try_mutant(work, mutant, jobs):
    """How the mutant was noticed, or None when it survived."""
    path = os.path.join(work, mutant.path)
    with open(path, encoding="utf-8") as file:
        original = file.read()
    mutated = original[: mutant.start] + mutant.replacement + original[mutant.end :]
    try:
        with open(path, "w", encoding="utf-8") as file:
            file.write(mutated)
        if build(work, jobs).returncode != 0:
            return "build failed"
        return run_tests(work)
    finally:
        with open(path, "w", encoding="utf-8") as file:
            file.write(original)


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


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--count", type=int, default=150)
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--folders", default=",".join(FOLDERS))
    parser.add_argument("--work", default="/tmp/mdnsproxy-mutants")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--list", action="store_true", help="print the chosen mutants and stop")
    parser.add_argument("--only", type=int, help="try this one of the chosen mutants only")
    arguments = parser.parse_args()

    candidates = without_equivalents(list(all_mutants(ROOT, FOLDERS)))
    candidates = [mutant for mutant in candidates if mutant.path.split(os.sep)[1] in arguments.folders.split(",")]
    chosen = random.Random(arguments.seed).sample(candidates, min(arguments.count, len(candidates)))
    print(f"seed {arguments.seed}: {len(chosen)} of {len(candidates)} possible mutants", flush=True)
    if arguments.list:
        for number, mutant in enumerate(chosen):
            print(f"{number}: {mutant.path} {mutant.kind}")
            show(mutant)
        return 0
    prepare(arguments.work, arguments.jobs)
    killed, survivors, invalid = 0, [], 0
    for number, mutant in enumerate(chosen):
        if arguments.only is not None and number != arguments.only:
            continue
        noticed = try_mutant(arguments.work, mutant, arguments.jobs)
        print(f"{number}: {mutant.path} {mutant.kind}: {noticed or 'SURVIVED'}", flush=True)
        if noticed is None:
            survivors.append(mutant)
            show(mutant)
        elif noticed == "build failed":
            invalid += 1
        else:
            killed += 1
    tried = killed + len(survivors)
    print(f"seed {arguments.seed}: {tried} mutants ran, {killed} killed, {len(survivors)} survived; "
          f"{invalid} did not compile and do not count")
    return 0 if tried and killed >= REQUIRED_SHARE * tried else 1


if __name__ == "__main__":
    sys.exit(main())
