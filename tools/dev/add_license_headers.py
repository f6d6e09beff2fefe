#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Puts the licence line at the head of every source that lacks it; with --check only names them and fails if there is
one."""

import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
LINE = "SPDX-License-Identifier: MIT"
COMMENT = {".cpp": "// ", ".h": "// ", ".py": "# ", ".sh": "# ", ".cmake": "# ", ".map": "# "}


def sources():
    """Files that git knows or would take. Data, text and a program without an ending are not sources in this sense."""
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                            stdout=subprocess.PIPE, check=True).stdout.decode()
    for name in sorted(filter(None, listed.split("\0"))):
        path = ROOT / name
        if path.is_file() and (path.suffix in COMMENT or path.name == "CMakeLists.txt"):
            yield path


def lacks_line(path):
    return LINE not in "".join(path.read_text(encoding="utf-8").splitlines(keepends=True)[:3])


def add_line(path):
    lines = path.read_text(encoding="utf-8").splitlines(keepends=True)
    place = 1 if lines and lines[0].startswith("#!") else 0
    lines.insert(place, COMMENT.get(path.suffix, "# ") + LINE + "\n")
    path.write_text("".join(lines), encoding="utf-8")


def main():
    lacking = [path for path in sources() if lacks_line(path)]
    for path in lacking:
        if "--check" in sys.argv[1:]:
            print(f"{path.relative_to(ROOT)}:1: the line \"{LINE}\" is missing")
        else:
            add_line(path)
    return 1 if lacking and "--check" in sys.argv[1:] else 0


sys.exit(main())
