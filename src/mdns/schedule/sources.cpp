// SPDX-License-Identifier: MIT
#include "mdns/schedule/sources.h"

namespace mdns {
namespace {

constexpr std::size_t kSourcesMax = 1024;

// A source is removed when it has sent nothing for this long and the cache has no entry of it.
constexpr Time kIdleAfter = 10 * kSecond;

// The token bucket of a host. Two thousand services, each with five records announced twice over one protocol, are some
// 800 kB in their first two seconds.
constexpr Time kBytesPerSecond = 1'000'000;
constexpr Time kBurstBytes = 2'000'000;
constexpr std::size_t kBytesPerDatagram = 60;  // what the headers add to each datagram

}  // namespace

std::size_t EndpointHash::operator()(const Endpoint& endpoint) const {
  const std::string_view address(reinterpret_cast<const char*>(endpoint.address.data()), endpoint.address.size());
  return static_cast<std::size_t>(hash_folded(address, seed + endpoint.protocol));
}

Source& source_get(Link& link, Endpoint host) {
  host.port = 0;
  Sources& sources = link.sources;
  if (sources.by_endpoint.size() >= kSourcesMax && !sources.by_endpoint.contains(host)) {
    return sources.overflow;
  }
  Source& source = sources.by_endpoint[host];
  if (source.number == 0) {
    source.endpoint = host;
    source.number = static_cast<std::uint32_t>(EndpointHash{link.hash_seed}(host)) | 1;  // the same if it is made again
  }
  sources.idle.set(source, link.now + kIdleAfter);
  return source;
}

bool source_allows(Link& link, Source& source, std::size_t bytes) {
  const Time cost = static_cast<Time>(bytes + kBytesPerDatagram) * kSecond / kBytesPerSecond;
  constexpr Time kBurst = kBurstBytes * kSecond / kBytesPerSecond;
  if (tokens_at(source.datagrams, link.now, kBurst, cost) > link.now) {
    return false;
  }
  tokens_take(source.datagrams, link.now, kBurst, cost);
  return true;
}

void source_drop_entry(Link& link, Source& source) {
  if (--source.entries == 0 && source.idle.at == kNever && &source != &link.sources.overflow) {
    link.sources.idle.set(source, link.now + kIdleAfter);
  }
}

void sources_advance(Link& link) {
  Sources& sources = link.sources;
  while (Source* source = sources.idle.due(link.now)) {
    sources.idle.set(*source, kNever);
    if (source->entries == 0) {  // else source_drop_entry plans its removal with its last entry
      sources.by_endpoint.erase(Endpoint(source->endpoint));
    }
  }
}

}  // namespace mdns
