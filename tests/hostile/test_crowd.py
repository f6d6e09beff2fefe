# SPDX-License-Identifier: MIT
"""Half as many invented instances again as the gateway takes, announced within a second.

    link A                                  gateway        link B
    [ genuine printer ]----+---------------[ mdnsproxy ]---[ client, counting packets ]
    [ adversary       ]----+
"""

from crowd import stands_invented_instances


def test_three_thousand_invented_instances(scene):
    # Five packets for each instance that is taken: it costs three probes and two announcements over two protocols, of
    # which many share a packet.
    stands_invented_instances(scene, 3000, 3000, packets_at_most=10000)
