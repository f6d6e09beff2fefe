"""Half as many invented instances again as the gateway takes, announced within a second.

    link A                                  gateway        link B
    [ genuine printer ]----+---------------[ mdnsproxy ]---[ client, counting packets ]
    [ adversary       ]----+
"""

from crowd import stands_invented_instances


def test_three_thousand_invented_instances(scene):
    # Each instance that is taken costs three probes and four announcements of five records; hundreds of records share a packet.
    stands_invented_instances(scene, 3000, 3000, packets_at_most=3000)
