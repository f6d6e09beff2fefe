# SPDX-License-Identifier: MIT
"""packaging/container as far as it goes without a container; long_container.py runs one."""

import re
import subprocess

import source_tree

FOLDER = source_tree.ROOT / "packaging/container"


def test_the_linter_is_content_with_the_entry_point():
    source_tree.run("shellcheck", FOLDER / "entrypoint")


def test_everything_that_the_image_is_made_of_is_there():
    """But for the package, which is put beside it."""
    copied = re.findall(r"^COPY (\S+) \S+$", (FOLDER / "Containerfile").read_text(encoding="utf-8"), re.MULTILINE)
    assert copied == ["mdnsproxy_*.deb", "entrypoint"]
    assert (FOLDER / "entrypoint").stat().st_mode & 0o111 == 0o111


def test_what_the_entry_point_lays_out_is_what_the_package_has_in_etc():
    names = re.search(r"for name in (.*);", (FOLDER / "entrypoint").read_text(encoding="utf-8"))[1].split()
    assert sorted(names) == sorted(path.name for path in (source_tree.ROOT / "packaging/etc").iterdir())
    assert f"for name in {' '.join(names)};" in (FOLDER / "Containerfile").read_text(encoding="utf-8")


def test_with_another_process_1_it_says_so_instead_of_vanishing():
    done = subprocess.run([FOLDER / "entrypoint"], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          check=False)
    assert (done.returncode, done.stdout) == (1, "")
    assert "has to be process 1" in done.stderr
