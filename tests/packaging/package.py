# SPDX-License-Identifier: MIT
"""The Debian package. Run as a program, it builds the package from a copy of the source tree; the tests take what that
left.

It is built on this machine, or, where the tests are about another Debian than this machine's, on one of those in a
directory.
"""

import os
import pathlib
import shutil
import sys
import tempfile

import source_tree
from debian_root import OWN_SUITE, SUITE, DebianRoot

DIRECTORY = source_tree.BUILD / ("package" if SUITE == OWN_SUITE else f"package-{SUITE}")
COMMAND = "dpkg-buildpackage -us -uc -b"
LINTIAN = ("lintian", "--allow-root", "--fail-on", "none", "--tag-display-limit", "0")
PARALLEL = f"parallel={os.cpu_count()}"


def build(directory=DIRECTORY, source=None, **more_environment):
    """Builds it on this machine, in `directory`, from the source tree or a copy of that, `source`. What is left there:
    the packages, what the compiler said (`log`), and what lintian found (`lintian`)."""
    tree = new_tree(directory, source)
    environment = {**os.environ, "DEB_BUILD_OPTIONS": PARALLEL, "LC_ALL": "C.UTF-8", **more_environment}
    if shutil.which("ccache"):
        environment["CMAKE_CXX_COMPILER_LAUNCHER"] = "ccache"
        # That of all other builds: debhelper gives each build an empty home, with an empty cache in it.
        environment["CCACHE_DIR"] = source_tree.run("ccache", "--get-config=cache_dir").strip()
    (directory / "log").write_text(source_tree.run(*COMMAND.split(), cwd=tree, env=environment))
    shutil.rmtree(tree)
    (directory / "lintian").write_text(source_tree.run(*LINTIAN, next(directory.glob("*.changes"))))


def build_in(debian, directory, *options):
    """Builds it in a Debian root, which gets what that takes, and moves what is left to `directory`. `options` are
    those that apt-get and dpkg-buildpackage share: -aARCHITECTURE builds it for another one than the root's."""
    inside = pathlib.Path("/srv/build")
    new_tree(debian.path / inside.relative_to("/"))
    debian.install("build-essential", "lintian")
    debian.install_build_dependencies(inside / "mdnsproxy", *options)
    log = debian.run("env", f"--chdir={inside}/mdnsproxy", f"DEB_BUILD_OPTIONS={PARALLEL}", *COMMAND.split(), *options)
    found = debian.run("env", f"--chdir={inside}", "sh", "-c", " ".join([*LINTIAN, "*.changes"]))
    shutil.rmtree(directory, ignore_errors=True)
    shutil.copytree(debian.path / inside.relative_to("/"), directory, ignore=shutil.ignore_patterns("mdnsproxy"))
    (directory / "log").write_text(log)
    (directory / "lintian").write_text(found)


def new_tree(directory, source=None):
    """A copy of the source tree, or of the folder `source`, in `directory`, which holds nothing else."""
    shutil.rmtree(directory, ignore_errors=True)
    tree = directory / "mdnsproxy"
    if source:
        shutil.copytree(source, tree)
    else:
        tree.mkdir(parents=True)
        source_tree.export_to(tree)
    return tree


class Package:
    """`path`: the *.deb file. `log`, `findings`: what was said when it was built, and what lintian found."""

    def __init__(self, directory=DIRECTORY):
        self.path = next(directory.glob(f"mdnsproxy_{source_tree.version()}_*.deb"))
        self.log = (directory / "log").read_text()
        self.findings = (directory / "lintian").read_text()

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


def build_where_it_belongs():
    if SUITE == OWN_SUITE:
        build()
        return
    debian = DebianRoot()
    try:
        build_in(debian, DIRECTORY)
    finally:
        debian.close()


if __name__ == "__main__":
    try:
        build_where_it_belongs()
    except AssertionError as failure:
        sys.exit(str(failure)[-8000:])
