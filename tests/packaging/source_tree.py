# SPDX-License-Identifier: MIT
"""The source tree that these tests are part of."""

import os
import pathlib
import re
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("MDNSPROXY_BUILD_DIR", ROOT / "build")).resolve()


def read(name):
    return (ROOT / name).read_text(encoding="utf-8")


def version():
    """The one place that says it."""
    return re.search(r"project\(mdnsproxy VERSION (\S+)", read("CMakeLists.txt"))[1]


def run(*command, **how):
    """Runs a program that has to succeed; returns what it wrote to standard output."""
    done = subprocess.run([str(each) for each in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False, **how)
    assert done.returncode == 0, f"{' '.join(map(str, command))}: status {done.returncode}\n{done.stdout}"
    return done.stdout


def export_to(target):
    """A copy of the tree as a fresh clone with today's changes would be: every file that git knows or would take."""
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True).stdout
    for name in listed.decode().split("\0"):
        if name and (ROOT / name).is_file():
            (target / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / name, target / name)
