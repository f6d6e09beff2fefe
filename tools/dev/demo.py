# SPDX-License-Identifier: MIT
"""What ./demo shows: a printer on link A before, while and after mdnsproxy makes it usable on link B.

Everything happens in network namespaces that this process alone keeps alive, and the daemon has a file system and a
process table of its own (tests/support/testbed), so nothing is left when it ends, however it ends.
"""

import os
import pathlib
import signal
import socket
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "support"))

# pylint: disable-next=wrong-import-position
from testbed import Browser, Daemon, Network, Printer, rule, stays_true  # noqa: E402

PRINTER = "Office Printer"
HOST = "office-printer.local."
GREETING = "hello from the printer on link A"

PICTURE = """\
         link A                      gateway                      link B
      +-----------+      +-----------------------------+      +-----------+
      |  printer  |------| a        mdnsproxy        b |------|  laptop   |
      +-----------+      |      (and it routes IP)     |      +-----------+
        10.1.0.2         +-----------------------------+        10.2.0.2
"""


def bold(text):
    return f"\033[1m{text}\033[0m" if sys.stdout.isatty() and os.environ.get("TERM") != "dumb" else text


def chapter(title):
    print(f"\n{bold(title)}", flush=True)


def say(text):
    print(f"  {text}", flush=True)


def row(what, value):
    print(f"      {what:<11}{value}", flush=True)


class Greeter:
    """A tiny TCP server on the printer, so that there is something to reach."""

    def __init__(self, link, port):
        self._sockets = []
        with link.ns.entered():
            for family, address in ((socket.AF_INET, "0.0.0.0"), (socket.AF_INET6, "::")):
                server = socket.socket(family, socket.SOCK_STREAM)
                if family == socket.AF_INET6:
                    server.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 1)
                server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                server.bind((address, port))
                server.listen()
                self._sockets.append(server)
                threading.Thread(target=self._serve, args=(server,), daemon=True).start()

    @staticmethod
    def _serve(server):
        while True:
            try:
                connection = server.accept()[0]
            except OSError:
                return
            with connection:
                connection.sendall(GREETING.encode())

    def close(self):
        for server in self._sockets:
            server.close()


def reach(link, address, port):
    """What the server at the address says to a client on the link."""
    with link.ns.entered():
        connection = socket.create_connection((address, port), timeout=3)
    with connection:
        return connection.recv(1000).decode()


def show_before(browser):
    chapter("Before")
    say(f'The printer announces "{PRINTER}" on link A (by python3-zeroconf, an independent program).')
    stays_true(lambda: not browser.names, 2, "nothing to be seen on link B")
    say(f"Link B has asked for printers for two seconds and sees: {', '.join(browser.names) or 'nothing'}.")


def show_during(network, browser, started):
    found = browser.sees(PRINTER, within=10)
    say(f"Link B sees it {time.monotonic() - started:.1f} s after the daemon was ready:")
    row("name", PRINTER)
    row("type", found.type)
    row("host", found.server)
    row("addresses", ", ".join(found.parsed_addresses()))
    row("port", found.port)
    row("TXT", ", ".join(f"{key.decode()}={(value or b'').decode()}" for key, value in found.properties.items()))
    say("And it can be used from there, by name:")
    for address in browser.resolve(HOST):
        row("connect", f"{HOST} -> {address} port {found.port} says: \"{reach(network['b'], address, found.port)}\"")


def show_after(browser, printer):
    chapter("After")
    said = time.monotonic()
    printer.goodbye()
    browser.loses(PRINTER, within=5)
    say(f"The printer says goodbye on link A; link B has lost it {time.monotonic() - said:.1f} s later.")


def show(network):
    parts = []
    try:
        parts.append(browser := Browser(network["b"]))
        parts.append(Greeter(network["a"], 631))
        parts.append(printer := Printer(network["a"], PRINTER, txt={"rp": "ipp/print", "ty": "Demo 2000"}))
        show_before(browser)
        parts.append(daemon := Daemon(network.gateway, rules=rule("_ipp._tcp", "a", "b")))
        chapter("With mdnsproxy")
        say("The gateway runs mdnsproxy with one rule: _ipp._tcp from a to b.")
        daemon.start_and_wait()
        show_during(network, browser, time.monotonic())
        show_after(browser, printer)
        chapter("The end")
        status = daemon.stop()
        say(f"SIGTERM ended the daemon with status {status}. Nothing of this is left on the machine.")
    except AssertionError:
        print("\n".join(part.logs() for part in parts if hasattr(part, "logs")), file=sys.stderr)
        raise
    finally:
        for part in reversed(parts):
            part.close()


def main():
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(1))
    try:
        with Network("a", "b") as network:
            print(f"\n{PICTURE}", end="")
            show(network)
    except KeyboardInterrupt:
        print("\nInterrupted; nothing of this is left on the machine.")
        return 130
    except AssertionError as failure:
        print(f"\n{bold('This went wrong:')} {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
