# SPDX-License-Identifier: MIT
"""The Debian package. Run as a program, it builds the package from a copy of the source tree; the tests take what that left."""

import os
import pathlib
import shutil
import sys
import tempfile

import source_tree

DIRECTORY = source_tree.BUILD / "package"
COMMAND = "dpkg-buildpackage -us -uc -b"


def build():
    shutil.rmtree(DIRECTORY, ignore_errors=True)
    tree = DIRECTORY / "mdnsproxy"
    tree.mkdir(parents=True)
    source_tree.export_to(tree)
    environment = {**os.environ, "DEB_BUILD_OPTIONS": f"parallel={os.cpu_count()}"}
    if shutil.which("ccache"):
        environment["CMAKE_CXX_COMPILER_LAUNCHER"] = "ccache"
    source_tree.run(*COMMAND.split(), cwd=tree, env=environment)
    shutil.rmtree(tree)


class Package:
    """`path`: the *.deb file. `changes`: the list of what was built, for lintian."""

    def __init__(self):
        self.path = next(DIRECTORY.glob(f"mdnsproxy_{source_tree.version()}_*.deb"))
        self.changes = next(DIRECTORY.glob("*.changes"))

    def files(self):
        """Paths in the package, without directories."""
        with tempfile.TemporaryDirectory() as unpacked:
            source_tree.run("dpkg-deb", "-x", self.path, unpacked)
            return sorted("/" + os.path.relpath(path, unpacked) for path in pathlib.Path(unpacked).rglob("*")
                          if path.is_symlink() or not path.is_dir())

    def dependencies(self):
        """Names of the packages that it depends on."""
        depends = source_tree.run("dpkg-deb", "-f", self.path, "Depends")
        return [each.split()[0] for each in depends.split(",")]

    def as_version(self, version, target):
        """The same package under another version, written to the file `target`."""
        with tempfile.TemporaryDirectory() as unpacked:
            source_tree.run("dpkg-deb", "-R", self.path, f"{unpacked}/all")
            control = pathlib.Path(unpacked, "all/DEBIAN/control")
            control.write_text(control.read_text().replace(f"Version: {source_tree.version()}", f"Version: {version}"))
            source_tree.run("dpkg-deb", "--root-owner-group", "-b", f"{unpacked}/all", target)


if __name__ == "__main__":
    try:
        build()
    except AssertionError as failure:
        sys.exit(str(failure)[-8000:])
