# SPDX-License-Identifier: MIT
"""The shells' completion of mdnsproxyctl: what is completed is the word that is meant, whatever a stranger has named.

    [ device ]----- a [ mdnsproxy ] b        its state file  ->  bash and zsh at a terminal
"""

import os
import pathlib
import pty
import re
import select
import shutil
import subprocess

import pytest
from testbed import Ctl, Daemon, Device, Network, rule, rules_list, wait_until
from testbed.daemon import build_directory

COMPLETION = pathlib.Path(__file__).resolve().parents[2] / "packaging/completion"
PROGRAM = build_directory() / "mdnsproxyctl"
# Each begins with a letter of its own.
NAMES = ["Aa Office  Printer", "Bb \"quote\" 'tick' ", "Cc $(touch evil)`touch evil`", "Dd back\\slash \\\\ end",
         "Ee colon: equals=1 [ab] {c,d} *?", "Ff ! #hash ~tilde; & | < > ()", "Gg プリンタ $HOME", "Hh:x=y", "Ii's"]
HIDDEN = ["Zz line\nbreak", "-rf", "Zz \u202eback"]


@pytest.fixture(scope="module")
def state(tmp_path_factory):
    """A state file with all of these names, of a daemon that is gone."""
    file = tmp_path_factory.mktemp("completion") / "state"
    with Network("a", "b") as network, Daemon(
            network.gateway, rules_list(rule("_ipp._tcp", "a", "b")), state_file=True) as daemon:
        daemon.start_and_wait()
        device = Device(network["a"])
        for port, name in enumerate([*NAMES, *HIDDEN], start=1000):
            device.publish(name, port=port)
        ctl = Ctl(daemon)
        wait_until(lambda: len(ctl.json("services", "--state", "forwarded")[1]["services"]) == len(NAMES + HIDDEN), 20,
                   lambda: ctl("services"))
        shutil.copy(daemon.box.path("/run/mdnsproxy/state"), file)
        device.close()
    return file


# pylint: disable=redefined-outer-name


def candidates(state, *words):
    done = subprocess.run([PROGRAM, "complete", "--state-file", state, *words], capture_output=True, check=True)
    first, *others, last = done.stdout.decode().split("\0")
    assert last == ""
    return first, others


# --- What the program offers


def test_commands_and_options_are_those_of_the_help(state):
    shown = subprocess.run([PROGRAM, "--help"], capture_output=True, check=True, text=True).stdout
    commands = re.findall(r"^  ([a-z-]+) ", shown.split("Subcommands:")[1], re.MULTILINE)
    assert candidates(state, "") == ("words", sorted(commands))
    assert candidates(state, "wa") == ("words", ["watch"])
    assert candidates(state, "services", "--s")[1] == ["--services", "--state", "--state-file"]
    assert "--dry-run" in candidates(state, "apply", "--")[1]
    assert candidates(state, "nonsense", "") == ("words", [])


def test_values_are_those_that_fit(state):
    assert candidates(state, "services", "--state", "") == ("words", ["forwarded", "refused", "waiting"])
    assert candidates(state, "services", "--state=re") == ("words", ["--state=refused"])
    assert "a" in candidates(state, "links", "")[1] and "b" not in candidates(state, "links", "a")[1]
    assert "b" in candidates(state, "--json", "why", "Aa Office  Printer", "b")[1]
    assert candidates(state, "why", "_") == ("words", ["_ipp._tcp"])
    assert candidates(state, "what-if", "/e") == ("files", [])
    assert candidates(state, "services", "--", "--s") == ("words", [])


def test_names_that_a_terminal_would_not_show_are_left_out(state):
    assert candidates(state, "services", "") == ("words", sorted(NAMES))


# --- At a terminal


class Shell:
    """An interactive shell. `typed(keys)` is what the program gets when they are typed, and Enter."""

    def __init__(self, directory, state, command, setup):
        self.directory = directory
        (directory / "setup").write_text(f"""
mdnsproxyctl() {{
  if [ "$1" = complete ]; then
    shift
    {PROGRAM} complete --state-file {state} "$@"
  else
    printf '%s\\0' "$@" >{directory}/new && mv {directory}/new {directory}/typed
  fi
}}
{setup}
mdnsproxyctl ready
""")
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.chdir(directory)
            os.execvpe(command[0], command, {"PATH": "/usr/bin:/bin", "TERM": "vt100", "LC_ALL": "C.UTF-8",
                                             "HOME": str(directory), "PS1": "> "})
        self.shown = b""
        assert self.typed(". ./setup") == ["ready"]

    def typed(self, keys):
        os.write(self.terminal, keys.encode() + b"\n")
        answer = self.directory / "typed"
        wait_until(lambda: self._read() and answer.exists(), 10,
                   lambda: f"{keys!r}: {self.shown[-2000:].decode(errors='replace')}")
        words = answer.read_bytes().decode().split("\0")[:-1]
        answer.unlink()
        return words

    def _read(self):
        while select.select([self.terminal], [], [], 0)[0]:
            self.shown += os.read(self.terminal, 65536)
        return True

    def close(self):
        os.close(self.terminal)
        os.waitpid(self.pid, 0)


SHELLS = {"bash": (["bash", "--norc", "--noprofile", "-i"],
                   f"bind 'set bell-style none'; . {COMPLETION}/mdnsproxyctl.bash"),
          "zsh": (["zsh", "-f", "-i"],
                  f"fpath=({COMPLETION} $fpath); autoload -Uz compinit; compinit -u -D; unsetopt beep")}


@pytest.fixture(scope="module", params=SHELLS)
def shell(request, state, tmp_path_factory):
    made = Shell(tmp_path_factory.mktemp(request.param), state, *SHELLS[request.param])
    yield made
    made.close()


@pytest.mark.parametrize("quote", ["", "'", '"'])
def test_a_name_is_completed_to_itself(shell, quote):
    for name in NAMES:
        assert shell.typed(f"mdnsproxyctl why {quote}{name[:2]}\t") == ["why", name], shell.shown[-300:]
    assert not (shell.directory / "evil").exists()


@pytest.mark.parametrize("begun, number", [
    (r"Aa\ Of", 0), ("'Aa Of", 0), ('"Aa Of', 0), (r"Cc\ \$\(tou", 2), ("'Cc $(tou", 2), (r'"Cc \$(tou', 2),
    (r"Dd\ back\\sl", 3), ("'Dd back\\sl", 3), (r'"Dd back\\sl', 3), (r"Ee\ colon\:", 4), (r"Ee\ colon:\ eq", 4),
    ("'Ee colon: equals=", 4), ("Hh:", 7), ("Hh:x=", 7), ("'Hh:x", 7), ("Gg\\ プリ", 6), ('"Gg プリ', 6)])
def test_what_is_typed_of_it_may_be_quoted(shell, begun, number):
    assert shell.typed(f"mdnsproxyctl why {begun}\t") == ["why", NAMES[number]], shell.shown[-300:]


def test_commands_options_and_links_are_completed(shell):
    assert shell.typed("mdnsproxyctl serv\t--dr\t") == ["services", "--dr"]
    assert shell.typed("mdnsproxyctl services --state fo\t") == ["services", "--state", "forwarded"]
    assert shell.typed("mdnsproxyctl services --state=fo\t") == ["services", "--state=forwarded"]
    (shell.directory / "my rules.xml").write_text("")
    assert shell.typed("mdnsproxyctl what-if my\t") == ["what-if", "my rules.xml"]


def test_bash_completes_words_that_are_given_to_it(state):
    script = f"""
mdnsproxyctl() {{ shift; {PROGRAM} complete --state-file {state} "$@"; }}
. {COMPLETION}/mdnsproxyctl.bash
COMP_WORDS=(mdnsproxyctl why "'Cc") COMP_CWORD=2
_mdnsproxyctl
printf '%s\\0' "${{COMPREPLY[@]}}"
"""
    shown = subprocess.run(["bash", "-c", script], capture_output=True, check=True, text=True).stdout
    assert shown == "Cc $(touch evil)`touch evil`\0"
