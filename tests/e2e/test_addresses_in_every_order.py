# SPDX-License-Identifier: MIT
"""Hosts whose addresses come and go in every order; then their services go, and nothing of them is left on link b.

      link a               gateway                link b
    [ hosts ]------ a [ mdnsproxy ] b -----[ client ]
"""

import random
import time

from testbed import chosen_seed, dns, rule, stays_true, wait_until

SUBTYPE = "_universal._sub._ipp._tcp.local"
GLOBAL4, LINK_LOCAL4, GLOBAL6, SECOND6, LINK_LOCAL6 = ADDRESSES = ["10.1.0.2", "169.254.7.7", "fd00:1::2", "fd00:1::77",
                                                                   "fe80::7"]
# What a host has, step by step.
NAMED = {
    "link-local-6-beside": [[GLOBAL6], [GLOBAL6, LINK_LOCAL6], [GLOBAL6]],
    "link-local-6-first": [[LINK_LOCAL6], [LINK_LOCAL6, GLOBAL6], [GLOBAL6]],
    "link-local-4-beside": [[GLOBAL4], [GLOBAL4, LINK_LOCAL4], [GLOBAL4]],
    "link-local-4-only": [[LINK_LOCAL4, GLOBAL6], [LINK_LOCAL4, GLOBAL4], [LINK_LOCAL4]],
    "second-6-comes-and-goes": [[GLOBAL6], [GLOBAL6, SECOND6], [GLOBAL6], [SECOND6], [GLOBAL6]],
    "second-6-returns": [[GLOBAL6, LINK_LOCAL6], [SECOND6, LINK_LOCAL6], [LINK_LOCAL6], [SECOND6], [GLOBAL6, SECOND6]],
    "none-in-between": [[GLOBAL4, GLOBAL6], [], [GLOBAL4, GLOBAL6], [], [SECOND6]],
}
RANDOM_HOSTS, RANDOM_STEPS = 9, 5


class Host:
    """A host of link a with one service, and the sets of addresses that it is to have one after another."""

    def __init__(self, scene, link, name, steps):
        self.steps = list(steps)
        self.device = scene.device(link, host=name, addresses=self.steps.pop(0))
        self.service = self.device.publish(f"Printer {name}", subtypes=["_universal"])

    def step(self, chance):
        """Now it has the addresses of the next step. Those that are gone get a goodbye, or make room for the announced
        ones."""
        if not self.steps:
            return
        former, there = self.device.addresses, self.steps.pop(0)
        gone = [record for record in self.device.address_records() if record.data not in there]
        is_announced = set(there) - set(former) or chance.random() < 0.5
        if is_announced:
            self.device.change_addresses(there)
        else:
            self.device.addresses = there
        makes_room = {record.kind for record in self.device.address_records()} if is_announced else set()
        self.device.say_goodbye([record for record in gone if record.kind not in makes_room or chance.random() < 0.5])

    @property
    def questions(self):
        """For every record that there can be of it on link b."""
        return [dns.Question(*asked) for asked in (
            (self.service.type, dns.PTR), (dns.labels(SUBTYPE), dns.PTR), (self.service.name, dns.SRV),
            (self.service.name, dns.TXT), (self.device.host, dns.A), (self.device.host, dns.AAAA))]


def random_steps(chance):
    """One address comes or goes at each step; the first has a global one, without which nothing is forwarded."""
    there = {chance.choice([GLOBAL4, GLOBAL6])}
    steps = [sorted(there)]
    for _ in range(RANDOM_STEPS):
        there = there ^ {chance.choice(ADDRESSES)}
        steps.append(chance.sample(sorted(there), len(there)))
    return steps


def play(hosts, chance, holds, story):
    """All steps of all hosts, with pauses of more and of less than the second for which a goodbye is not yet
    believed."""
    while any(host.steps for host in hosts):
        stays_true(holds, chance.choice([0.3, 1.2]), story)
        for host in hosts:
            host.step(chance)
    stays_true(holds, 1.2, story)


def test_nothing_is_left_of_hosts_whose_addresses_have_changed_in_every_order(scene):
    chance = random.Random(chosen_seed())
    cases = {**NAMED, **{f"random-{number}": random_steps(chance) for number in range(RANDOM_HOSTS)}}
    story = "\n".join(f"{name}: {steps}" for name, steps in cases.items())
    net = scene.network("a", "b")
    ear = scene.ear(net["b"])
    scene.daemon(net.gateway, rule("_universal._ipp._tcp", "a", "b")).start_and_wait()
    gateway = net.gateway_addresses("b")
    client = scene.device(net["b"], host="client", addresses=[])
    hosts = [Host(scene, net["a"], name, steps) for name, steps in cases.items()]

    def answers(since):
        return {(record.name, record.kind) for _, record in ear.records(gateway, since)}

    def ask_for_everything():
        """Returns when."""
        asked = time.monotonic()
        for host in hosts:
            client.send(dns.Message(questions=host.questions))
        return asked
    play(hosts, chance, lambda: not any(ear.heard(host.device.host, kind, data=data) for host in hosts
                                        for kind, data in (
        (dns.A, LINK_LOCAL4), (dns.AAAA, LINK_LOCAL6))), story)
    asked = ask_for_everything()
    services = {(question.name, question.kind) for host in hosts for question in host.questions[:4]}
    wait_until(lambda: services <= answers(asked), 2, lambda: f"answers for {services - answers(asked)}\n{story}")
    for host in hosts:
        host.device.withdraw(host.service)
    wait_until(lambda: ear.cached(gateway) == [], 2, lambda: f"no record on link b, but {ear.cached(gateway)}\n{story}")
    assert ear.held(gateway) == [], story
    asked = ask_for_everything()
    stays_true(lambda: not answers(asked), 0.7, lambda: f"answers {answers(asked)}\n{story}")
