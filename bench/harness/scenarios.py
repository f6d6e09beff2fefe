# SPDX-License-Identifier: MIT
"""At what the subjects are measured. Each scenario makes a network of its own for each subject,

        link a                    gateway                   link b
    [ devices ]----[ a   mdnsproxy | reflector | floor   b ]----[ watcher, clients ]

and returns a dictionary of plain figures (seconds, bytes, counts). The watcher sends nothing: all times are those at
which the kernel of link b saw the packet that made a service usable there (PTR, SRV, TXT and an address), less the time
at which the device announced it.
"""

import contextlib
import statistics

from testbed import Network, addresses_on, let_pass
from testbed.crowd import Clients, Crowd, Watcher

from .field import BURST_SECONDS, KIND, TXT_BYTES, sleep_until, wait_up_to
from .subjects import Floor

SINGLE_KIND = KIND
# Ten types as they are met on office and home links; the first two are forwarded.
DAY_KINDS = ("_ipp._tcp", "_googlecast._tcp", "_airplay._tcp", "_raop._tcp", "_smb._tcp", "_http._tcp", "_ssh._tcp",
             "_spotify-connect._tcp", "_hap._tcp", "_pdl-datastream._tcp")
DAY_FORWARDED = 2
DAY_SERVICES = 30
DAY_CLIENTS = 20


class Scene:
    """One subject on its network, with devices on link a (on link b for the floor) and a watcher on link b."""

    def __init__(self, subject, kinds, forwarded):
        with contextlib.ExitStack() as stack:
            self.network = stack.enter_context(Network("a", "b"))
            self.subject = subject(self.network, forwarded)
            stack.callback(self.subject.close)
            if subject is Floor:
                self.devices = self.subject
            else:
                self.devices = stack.enter_context(Crowd(self.network["a"], kinds, txt=TXT_BYTES))
            self.watcher = stack.enter_context(
                Watcher(self.network["b"], addresses_on(self.network.gateway, "b")))
            self._stack = stack.pop_all()

    @property
    def process(self):
        return self.subject.process

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._stack.close()


def single(subject, repeats):
    """One service, again and again: announced, seen on b, withdrawn, gone from b."""
    appear, vanish, lost = [], [], 0
    with Scene(subject, (SINGLE_KIND,), (SINGLE_KIND,)) as scene:
        for number in range(repeats):
            begin, _ = scene.devices.announce(number, 1)
            if not wait_up_to(lambda: scene.watcher.there == 1, 10):
                lost += 1
            let_pass(1.5)  # until the device's second announcement is out, which must not follow its goodbye
            end, _ = scene.devices.withdraw(number, 1)
            wait_up_to(lambda: scene.watcher.listed == 0, 10)
            seen, gone = scene.watcher.services.get(f"Device {number}", (0, 0))
            appear += [seen - begin] if seen else []
            vanish += [gone - end] if gone else []
            scene.watcher.reset()
        return {"repeats": repeats, "lost": lost, "appear": _spread(appear), "vanish": _spread(vanish),
                "peak_memory": scene.process.peak_memory}


def scale(subject, count, window, ask):
    """`count` services within a second. After `window` seconds a client on b asks for them, `ask` seconds long; then
    all go."""
    with Scene(subject, (SINGLE_KIND,), (SINGLE_KIND,)) as scene:
        cpu, memory = scene.process.cpu, scene.process.memory
        begin, end = scene.devices.announce(0, count, BURST_SECONDS)
        sleep_until(begin + window)
        figures = {"count": count, "announced_in": end - begin, "cpu": scene.process.cpu - cpu,
                   "there": scene.watcher.there, "traffic": scene.watcher.traffic["gateway"]}
        times = sorted(seen - begin for seen, _ in scene.watcher.services.values() if seen)
        figures |= {"times": [round(at, 4) for at in times], "all_there": times[-1] if len(times) == count else None,
                    "half_there": times[count // 2 - 1] if len(times) >= count // 2 else None}
        if ask:
            with Clients(scene.network["b"], (SINGLE_KIND,)) as clients:
                clients.go(ask)
                clients.wait(ask + 60)
            figures |= {"there_after_asking": scene.watcher.there}
        figures |= {"memory_idle": memory, "peak_memory": scene.process.peak_memory}
        return figures | _all_go(scene, count)


def _all_go(scene, count):
    cpu = scene.process.cpu
    begin, _ = scene.devices.withdraw(0, count, BURST_SECONDS)
    gone = wait_up_to(lambda: scene.watcher.listed == 0, 30)
    last = max((end for _, end in scene.watcher.services.values()), default=0)
    return {"left_over": scene.watcher.listed, "all_gone": last - begin if gone else None,
            "cpu_going": scene.process.cpu - cpu, "memory_after": scene.process.memory}


def day(subject, seconds, seed):
    """A working day in small: devices of ten types on a, of which two are to be forwarded, and half of the clients on
    each link, each of them awake twice."""
    forwarded = DAY_KINDS[:DAY_FORWARDED]
    kinds = forwarded if subject is Floor else DAY_KINDS
    count = DAY_SERVICES * len(kinds) // len(DAY_KINDS)
    with Scene(subject, kinds, forwarded) as scene, contextlib.ExitStack() as stack:
        clients = [stack.enter_context(Clients(scene.network[link], DAY_KINDS, clients=DAY_CLIENTS // 2, picks=3,
                                               sessions=2, seed=seed + number)) for number, link in enumerate("ab")]
        at_a = stack.enter_context(Watcher(scene.network["a"], addresses_on(scene.network.gateway, "a")))
        cpu = scene.process.cpu
        scene.devices.announce(0, count, min(10.0, seconds / 6))
        for crowd in clients:
            crowd.go(seconds)
        queries = sum(crowd.wait(seconds + 30) for crowd in clients)
        return {"seconds": seconds, "seed": seed, "services": count, "there": scene.watcher.there, "queries": queries,
                "cpu": scene.process.cpu - cpu, "peak_memory": scene.process.peak_memory,
                "traffic": scene.watcher.traffic["gateway"], "clients_traffic": scene.watcher.traffic["others"],
                "traffic_on_a": at_a.traffic["gateway"]}


def _spread(values):
    if not values:
        return {"median": None, "min": None, "max": None, "values": []}
    return {"median": statistics.median(values), "min": min(values), "max": max(values),
            "values": [round(value, 4) for value in values]}
