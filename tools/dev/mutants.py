# SPDX-License-Identifier: MIT
"""The mutants of this project's sources: every one, those known to be equivalent, and a choice by a seed."""

import os
import pathlib
import random
import re
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
EQUIVALENTS = os.path.join("tools", "dev", "equivalent_mutants.txt")

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

STATEMENT = re.compile(r"^(?P<indent> +)(?!return\b|break;|continue;|case |const |auto |char |int |std::|static "
                       r")[^\s/#{}].*;$")


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
