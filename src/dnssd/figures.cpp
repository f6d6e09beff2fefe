// SPDX-License-Identifier: MIT
#include <dns_sd_figures.h>

#include <algorithm>

#include "dnssd/state/engine.h"

namespace dnssd {
namespace {

dns_sd_host to_host(const mdns::Endpoint& endpoint) {
  dns_sd_host host{};
  host.family = endpoint.protocol == mdns::kIpv4 ? 4 : 6;
  std::ranges::copy(endpoint.address, host.address);
  return host;
}

dns_sd_figures figures_of(const Interface& interface) {
  const mdns::LinkFigures link = mdns::link_figures(*interface.link, monotonic_now());
  dns_sd_figures figures{};
  figures.interface_index = interface.index;
  figures.received = link.received;
  figures.ignored = link.ignored;
  figures.sent = link.sent;
  figures.conflicts = link.conflicts;
  for (const Socket& socket : interface.sockets) {
    figures.lost += socket.lost;
  }
  const std::size_t siblings = std::min<std::size_t>(link.siblings.size(), kDNSSDFiguresSiblings);
  std::transform(link.siblings.begin(), link.siblings.begin() + static_cast<std::ptrdiff_t>(siblings), figures.siblings,
                 to_host);
  return figures;
}

}  // namespace
}  // namespace dnssd

std::size_t dns_sd_link_figures(struct dns_sd_figures* figures, std::size_t room) {
  std::size_t count = 0;
  if (dnssd::gEngine != nullptr) {
    for (const auto& [index, interface] : dnssd::gEngine->interfaces) {
      if (count < room) {
        figures[count++] = dnssd::figures_of(*interface);
      }
    }
  }
  return count;
}
