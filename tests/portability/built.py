# SPDX-License-Identifier: MIT
"""A build of the tree in a folder of its own, with its own options."""

import os
import shutil

import source_tree


class Built:
    """Configured as `options` say. The folder is below the build that these tests belong to."""

    def __init__(self, name, *options):
        self.path = source_tree.BUILD / "portability" / name
        shutil.rmtree(self.path, ignore_errors=True)
        languages = ("C", "CXX") if shutil.which("ccache") else ()
        launcher = [f"-DCMAKE_{language}_COMPILER_LAUNCHER=ccache" for language in languages]
        source_tree.run("cmake", "-S", source_tree.ROOT, "-B", self.path, "-G", "Ninja", *launcher, *options)

    def make(self, *targets):
        """Builds these targets, or everything."""
        source_tree.run("nice", "-n", "19", "cmake", "--build", self.path, "--parallel", os.cpu_count(),
                        *(["--target", *targets] if targets else []))

    def test(self, pattern, *options):
        """Runs the tests of a label; there is at least one, and all of them pass. Returns what ctest says."""
        return source_tree.run("nice", "-n", "19", "ctest", "--test-dir", self.path, "-L", pattern, "-LE", "long",
                               "--no-tests=error", "--output-on-failure", "--parallel", os.cpu_count(), *options)

    def install(self, root):
        """Installs into the folder `root`, as a package's build does."""
        source_tree.run("cmake", "--install", self.path, env={**os.environ, "DESTDIR": str(root)})
