# SPDX-License-Identifier: MIT
"""More invented instances than the gateway takes."""

import time

from flooded import GENUINE, Flooded
from testbed import adversary, dns, wait_until

LIMIT = 2001
# A link that is flooded is served late, not wrongly: what was taken in has to be worked off first.
WORKED_OFF_WITHIN = 150


def stands_invented_instances(scene, count, per_second, packets_at_most):
    flooded = Flooded(scene, "_ipp._tcp")
    since = time.monotonic()
    flooded.adversary.flood(adversary.invented_instances(count), per_second)
    wait_until(lambda: flooded.daemon.box.logged(f"Maxnum({LIMIT}) of responder reached"), WORKED_OFF_WITHIN,
               "a full table")
    wait_until(lambda: len(flooded.client.instances()) >= LIMIT, WORKED_OFF_WITHIN,
               lambda: f"{LIMIT} instances on link B, but {len(flooded.client.instances())}")
    flooded.falls_silent(within=60)
    flooded.is_up()
    instances = flooded.client.instances()
    packets = len(flooded.client.heard_packets(since))
    print(f"{flooded.adversary.sent} packets on link A, {packets} on link B; quiet after "
          f"{time.monotonic() - since:.1f} s")
    assert len(instances) == LIMIT
    assert dns.labels(GENUINE) in instances, "the genuine service was pushed out"
    flooded.finds_genuine()
    assert packets <= packets_at_most
    flooded.ends_clean()
