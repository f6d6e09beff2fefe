# SPDX-License-Identifier: MIT
"""mdnsproxyctl beside a daemon, in its box."""

import json

from .daemon import build_directory
from .waiting import wait_until

_PROGRAM = "/mnt/program/mdnsproxyctl"


class Running:
    """One run that goes on; `answers`: the JSON lines so far."""

    def __init__(self, box, process, output):
        self._box = box
        self._process = process
        self._output = output

    def answers(self):
        lines = self._box.output(self._output).splitlines(keepends=True)
        return [json.loads(line) for line in lines if line.startswith('{"') and line.endswith("\n")
                and '"event"' in line]

    def answer(self, within=20):
        """(exit status, the answer), of a run that ends by itself, with --json."""
        return self.exit_status(within), json.loads(self._box.output(self._output))

    def exit_status(self, within):
        self._process.wait(within)
        return self._process.exit_status


class Ctl:
    """ctl("status") runs the command to its end: (exit status, output). `user`: the id of whom it is run by."""

    def __init__(self, daemon, user=0):
        self.box = daemon.box
        if not getattr(self.box, "has_ctl", False):
            self.box.install(build_directory() / "mdnsproxyctl")
            self.box.has_ctl = True
        self._runner = ["setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups"] if user else []
        self._user = user

    def start(self, *arguments):
        output = f"ctl-{self._user}-{len(self.box.started)}"
        return Running(self.box, self.box.start(*self._runner, _PROGRAM, *arguments, output=output), output)

    def __call__(self, *arguments, within=20):
        output = f"ctl-{self._user}-{len(self.box.started)}"
        process = self.box.start(*self._runner, _PROGRAM, *arguments, output=output)
        wait_until(lambda: process.status is not None, within, f"the end of mdnsproxyctl {arguments}")
        return process.exit_status, self.box.output(output)

    def json(self, *arguments, within=20):
        """(exit status, the answer)."""
        status, output = self(*arguments, "--json", within=within)
        return status, json.loads(output)
