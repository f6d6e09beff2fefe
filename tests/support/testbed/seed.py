# SPDX-License-Identifier: MIT
"""What makes a random test repeatable."""

import os
import random


def chosen_seed():
    """The seed that a random test takes: MDNSPROXY_TEST_SEED, or one of its own. It is printed either way."""
    seed = int(os.environ.get("MDNSPROXY_TEST_SEED", random.randrange(1 << 32)))
    print(f"seed: MDNSPROXY_TEST_SEED={seed}")
    return seed
