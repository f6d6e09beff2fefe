# SPDX-License-Identifier: MIT
"""A service on a link, published by python3-zeroconf."""

import zeroconf

from .closing import Closing


def zeroconf_on(link):
    version = zeroconf.IPVersion.All if link.ipv4 and link.ipv6 else (
        zeroconf.IPVersion.V4Only if link.ipv4 else zeroconf.IPVersion.V6Only)
    interfaces = [link.address4(2)] * link.ipv4 + [link.ns.index(link.interface)] * link.ipv6
    with link.ns.entered():
        return zeroconf.Zeroconf(interfaces=interfaces, ip_version=version)


def close_zeroconf(opened):
    """Ends it with its event loop, which it would leave to the interpreter's last moments."""
    opened.close()
    opened.loop.close()


class Printer(Closing):
    """Announced from its making on (python3-zeroconf probes first, which takes it about 0.7 s). Several services of one
    host take the same `host`."""

    def __init__(self, link, name="Office Printer", kind="_ipp._tcp", port=631, txt=None, host="office-printer",
                 addresses=None):
        self.zeroconf = zeroconf_on(link)
        self.info = self._describe(link, name, kind, port, txt, host, addresses)
        self.zeroconf.register_service(self.info)

    @staticmethod
    def _describe(link, name, kind, port, txt, host, addresses):
        return zeroconf.ServiceInfo(f"{kind}.local.", f"{name}.{kind}.local.", port=port, properties=txt or {},
                                    server=f"{host}.local.", parsed_addresses=addresses or link.addresses())

    def goodbye(self):
        self.zeroconf.unregister_service(self.info)

    def close(self):
        """Says goodbye, if that was not done, and ends."""
        close_zeroconf(self.zeroconf)
