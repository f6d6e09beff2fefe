# SPDX-License-Identifier: MIT
"""Ten thousand invented instances.

    link A                                  gateway        link B
    [ genuine printer ]----+---------------[ mdnsproxy ]---[ client, counting packets ]
    [ adversary       ]----+
"""

from crowd import stands_invented_instances


def test_ten_thousand_invented_instances(scene):
    stands_invented_instances(scene, 10000, 2500, packets_at_most=10000)
