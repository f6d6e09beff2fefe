# SPDX-License-Identifier: MIT
"""What N services cost: one driver registers them (each with an address record), another browses, resolves and asks for the
addresses, and all are withdrawn. Prints seconds and CPU seconds; run as root: scale_bench.py [N ...]"""

import os
import resource
import signal
import sys
import time

import driver as d


def cpu_of(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def peak_of(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as status:
        return int(next(line for line in status if line.startswith("VmHWM")).split()[1])


def run(count):
    near, far = d.Host("near"), d.Host("far")
    d.link(near, "eth0", far, "eth0")
    publisher, browser = d.Driver(near), d.Driver(far)
    try:
        index_near, index_far = near.index("eth0"), far.index("eth0")
        publisher.connect()
        browser.connect()
        browser.browse("br", index_far, "_ipp._tcp")
        base = peak_of(publisher.process.pid), peak_of(browser.process.pid)
        start = time.monotonic()
        for i in range(count):
            publisher.send("record", f"a{i}", "c", d.SHARED, index_near, d.Driver.text(f"host{i}.local."), d.A,
                           bytes([10, 9, 10 + i // 250, 1 + i % 250]).hex(), 0)
            publisher.send("record", f"b{i}", "c", d.SHARED, index_near, d.Driver.text(f"host{i}.local."), d.AAAA,
                           (bytes([0xFD, 9] + [0] * 12) + bytes([10 + i // 250, 1 + i % 250])).hex(), 0)
            publisher.send("register", f"s{i}", "c", d.SHARE, index_near, d.Driver.text(f"Printer {i}"),
                           d.Driver.text("_ipp._tcp"), "-", d.Driver.text(f"host{i}.local."), 631,
                           d.txt_data(f"serial={i}", "a=b").hex())
        sent = time.monotonic()
        d.wait_for(lambda: len(browser.of("br")) >= count, f"{count} services", 200)
        visible = time.monotonic()
        d.wait_for(lambda: time.monotonic() > visible + 9, "the last announcements", 20)
        cpu = cpu_of(publisher.process.pid), cpu_of(browser.process.pid)
        peak = peak_of(publisher.process.pid), peak_of(browser.process.pid)
        print(f"{count:5d} sent {sent - start:.2f} visible {visible - start:6.2f} s  cpu publisher {cpu[0]:.2f} browser {cpu[1]:.2f}"
              f"  KiB per service {(peak[0] - base[0]) / count:.1f} {(peak[1] - base[1]) / count:.1f}", flush=True)
        gone = time.monotonic()
        publisher.process.send_signal(signal.SIGTERM)
        publisher.process.wait(timeout=60)
        ended = time.monotonic()
        d.wait_for(lambda: len(browser.of("br")) >= 2 * count, f"{count} goodbyes", 60)
        print(f"      end of process {ended - gone:.2f} s  all gone {time.monotonic() - gone:.2f} s", flush=True)
        browser.release("c")
    except AssertionError as error:
        print(str(error)[:300], len(browser.of("br")), len(publisher.replies),
              "cpu", cpu_of(publisher.process.pid), cpu_of(browser.process.pid))
    finally:
        for one in (publisher, browser):
            one.kill()
        near.remove()
        far.remove()


if __name__ == "__main__":
    for argument in sys.argv[1:] or ["500", "2000"]:
        run(int(argument))
