# SPDX-License-Identifier: MIT
"""Process 1 of a box: makes its file system, starts programs on command and reports how each process ended.

Commands come as JSON lines on standard input, reports go as JSON lines to standard output; the end of the input is the
end of the box, since the kernel kills a process table with its process 1.
"""

import ctypes
import json
import os
import select
import signal
import sys

_MS_BIND, _MS_REC = 0x1000, 0x4000
_PR_SET_PDEATHSIG = 1
_libc = ctypes.CDLL(None, use_errno=True)


def mount(source, target, kind=None, flags=0):
    if _libc.mount(source.encode(), target.encode(), kind.encode() if kind else None, flags, None) != 0:
        raise OSError(ctypes.get_errno(), f"mount {source} on {target}")


def touch(path):
    with open(path, "ab"):
        pass


def make_file_system(root):
    """Everything is bound below /mnt first: /tmp hides `root` once it is replaced."""
    mount("box", "/mnt", "tmpfs")
    for device in ("null", "zero", "full", "random", "urandom"):
        touch(f"{root}/dev/{device}")
        mount(f"/dev/{device}", f"{root}/dev/{device}", flags=_MS_BIND)
    for directory in ("etc", "tmp", "run", "dev", "log"):
        os.mkdir(f"/mnt/{directory}")
        mount(f"{root}/{directory}", f"/mnt/{directory}", flags=_MS_BIND | _MS_REC)
    os.mkdir("/mnt/program")
    os.mkdir("/mnt/host-tmp")
    mount("/tmp", "/mnt/host-tmp", flags=_MS_BIND | _MS_REC)
    for directory in ("etc", "tmp", "run", "dev"):
        mount(f"/mnt/{directory}", f"/{directory}", flags=_MS_BIND | _MS_REC)


def seen_from_here(path):
    """Where a path of the machine is found now that /tmp is another one."""
    return "/mnt/host-" + path[1:] if path.startswith("/tmp/") else path


def install(files):
    for file in files:
        target = "/mnt/program/" + os.path.basename(file)
        touch(target)
        mount(seen_from_here(file), target, flags=_MS_BIND)


def run(command):
    """In a new process: becomes the program, with standard streams of its own."""
    null = os.open("/dev/null", os.O_RDONLY)
    output = os.open(seen_from_here(command["output"]), os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o644)
    os.dup2(null, 0)
    os.dup2(output, 1)
    os.dup2(output, 2)
    os.closerange(3, 64)
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    os.chdir("/")
    try:
        os.execvpe(command["start"][0], command["start"], {**os.environ, **command["environment"]})
    except OSError as error:
        print(f"cannot start {command['start']}: {error}", file=sys.stderr, flush=True)
        os._exit(127)


def wait_for(child):
    """A parent as a shell would be: waits and ends with the child's status."""
    status = os.waitpid(child, 0)[1]
    if os.WIFSIGNALED(status):
        signal.signal(os.WTERMSIG(status), signal.SIG_DFL)
        os.kill(os.getpid(), os.WTERMSIG(status))
    os._exit(os.waitstatus_to_exitcode(status) & 255)


def start(command):
    process = os.fork()
    if process == 0:
        if not command["by_init"]:
            child = os.fork()
            if child != 0:
                wait_for(child)
        run(command)
    return process


def report(**what):
    sys.stdout.write(json.dumps(what) + "\n")
    sys.stdout.flush()


def reap():
    while True:
        try:
            pid, status = os.waitpid(-1, os.WNOHANG)
        except ChildProcessError:
            return
        if pid == 0:
            return
        report(ended=pid, status=status)


def obey(command):
    if "install" in command:
        install(command["install"])
    elif "start" in command:
        report(started=start(command))
    elif "kill" in command:
        try:
            os.kill(command["kill"], command["signal"])
        except ProcessLookupError:
            pass


def main():
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGKILL)
    make_file_system(sys.argv[1])
    wakeup, waker = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
    signal.set_wakeup_fd(waker)
    signal.signal(signal.SIGCHLD, lambda *_: None)
    pending = b""
    while True:
        ready = select.select([0, wakeup], [], [])[0]
        if wakeup in ready:
            os.read(wakeup, 4096)
        reap()
        if 0 in ready:
            data = os.read(0, 65536)
            if not data:
                return
            *lines, pending = (pending + data).split(b"\n")
            for line in lines:
                obey(json.loads(line))


main()
