# SPDX-License-Identifier: MIT
"""A fresh Debian in a directory, as `debootstrap` makes it: Debian 12, or the suite that MDNSPROXY_TEST_SUITE names.

Making one takes half a minute and the network, so a tar file of it is kept in CACHE (MDNSPROXY_TEST_CACHE names another
place). Where packages come from is whatever this machine's own apt is told, read at run time.
"""

import os
import pathlib
import platform
import re
import shutil
import tempfile
import time

import source_tree

SUITE = os.environ.get("MDNSPROXY_TEST_SUITE", "bookworm")
OWN_SUITE = platform.freedesktop_os_release().get("VERSION_CODENAME")  # of this machine
CACHE = pathlib.Path(os.environ.get("MDNSPROXY_TEST_CACHE", "/var/cache/mdnsproxy-test"))
# The list of packages in the tar file is as old as that; an older one may name packages that are no longer there.
OLDEST_CACHE = 7 * 24 * 3600
# Beside the base system: what makes it boot, and what an administrator has on any machine.
PACKAGES = ["init", "udev", "dbus", "iproute2", "procps", "man-db"]


def source_line():
    """The URI from where this machine's apt gets its own Debian; the other suites are beside that."""
    found = source_tree.run("apt-get", "indextargets", "--format", "$(REPO_URI) $(CODENAME) $(COMPONENT)",
                            "Created-By: Packages")
    lines = [line.split() for line in found.splitlines()]
    matching = [uri for uri, codename, component in lines if (codename, component) == (OWN_SUITE, "main")]
    assert matching, f"this machine's apt knows no {OWN_SUITE} main:\n{found}"
    return matching[0]


class DebianRoot:
    """The directory `path`, removed on close. machine.py boots it."""

    def __init__(self):
        self.path = new_directory()
        try:
            source_tree.run("tar", "-C", self.path, "-xf", cached_tar())
        except BaseException:
            self.close()
            raise

    def run(self, *command):
        """Runs a command in the directory as root, on this machine's network; it has to succeed. Returns its output."""
        return run_in(self.path, *command)

    def install(self, *packages):
        """Installs packages of Debian and *.deb files (paths as the root sees them) with what they depend on."""
        self._apt("install", *packages)

    def install_build_dependencies(self, tree, *options):
        """What debian/control in the folder `tree` (as the root sees it) asks for. `options` are those of apt-get."""
        self._apt("build-dep", *options, f"{tree}/")

    def _apt(self, *arguments):
        with kept_archives(self.path):
            try:
                self.run(*APT, *arguments)
            except AssertionError:  # the usual reason is an old list
                self.run("apt-get", "-q", "update")
                self.run(*APT, *arguments)

    def files(self):
        """Everything that is in the directory but for what changes by itself: logs, caches, the package system's own
        books and systemd's of its last update."""
        own_books = re.compile(r"(proc|sys|dev|run|tmp|var/log|var/cache|var/tmp|var/lib/(dpkg|apt|systemd)"
                               r"|(etc|var)/\.updated)(/|$)")
        found = set()
        for directory, directories, names in os.walk(self.path):
            inside = os.path.relpath(directory, self.path)
            directories[:] = [name for name in directories
                              if not own_books.match(os.path.normpath(os.path.join(inside, name)))]
            found.update(os.path.normpath(os.path.join(inside, name)) for name in [*directories, *names])
        return {path for path in found if not own_books.match(path)}

    def close(self):
        shutil.rmtree(self.path, ignore_errors=True)


APT = ("apt-get", "-q", "-y", "--no-install-recommends")


def run_in(root, *command):
    environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "DEBIAN_FRONTEND": "noninteractive", "LC_ALL": "C.UTF-8"}
    # Its mounts live and die in a mount namespace; what it starts dies with it.
    script = ('mount --bind "$0" "$0" && cd "$0" && mount -t proc proc proc && mount -t tmpfs tmpfs tmp && exec '
              'chroot . "$@"')
    return source_tree.run("unshare", "--mount", "--pid", "--fork", "--kill-child", "sh", "-c", script, root, *command,
                           env=environment)


class kept_archives:
    """Within it, packages that apt downloads in the root are kept in CACHE, and those that are there are not
    downloaded."""

    def __init__(self, root):
        self.inside = root / "var/cache/apt/archives"
        self.kept = CACHE / "archives"

    def __enter__(self):
        self.kept.mkdir(parents=True, exist_ok=True)
        for file in self.kept.glob("*.deb"):
            link_or_copy(file, self.inside / file.name)

    def __exit__(self, *_):
        for file in self.inside.glob("*.deb"):
            if not (self.kept / file.name).exists():
                partial = self.kept / f".{file.name}.{os.getpid()}"
                link_or_copy(file, partial)
                partial.rename(self.kept / file.name)
            file.unlink()


def link_or_copy(source, target):
    """The same bytes under another name. There are hundreds of megabytes of packages, and every root gets all of
    them."""
    try:
        os.link(source, target)
    except OSError:  # another file system
        shutil.copy(source, target)


def new_directory():
    """One that everybody may enter: it is the root directory of users without privileges too."""
    path = pathlib.Path(tempfile.mkdtemp(prefix="mdnsproxy-root-", dir="/var/tmp"))
    path.chmod(0o755)
    return path


def cached_tar():
    tar = CACHE / f"{SUITE}-{source_tree.run('dpkg', '--print-architecture').strip()}.tar"
    if not tar.exists() or time.time() - tar.stat().st_mtime > OLDEST_CACHE:
        make_tar(tar)
    return tar


def make_tar(tar):
    CACHE.mkdir(parents=True, exist_ok=True)
    root = new_directory()
    partial = tar.with_suffix(f".{os.getpid()}")
    try:
        source_tree.run("debootstrap", "--variant=minbase", SUITE, root, source_line())
        configure(root)
        run_in(root, "apt-get", "-q", "update")
        run_in(root, *APT, "install", *PACKAGES)
        run_in(root, "apt-get", "-q", "clean")
        source_tree.run("tar", "-C", root, "-cf", partial, ".")
        partial.rename(tar)
    finally:
        partial.unlink(missing_ok=True)
        shutil.rmtree(root, ignore_errors=True)


def configure(root):
    """apt as on this machine, names resolved as on this machine."""
    acquire = [line for line in source_tree.run("apt-config", "dump").splitlines()
               if re.match(r"Acquire::(Check|http|https|ForceIPv)", line)]
    (root / "etc/apt/apt.conf.d/99machine").write_text("\n".join(acquire) + "\n")
    shutil.copy("/etc/resolv.conf", root / "etc/resolv.conf")
