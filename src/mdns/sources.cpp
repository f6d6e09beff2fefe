// SPDX-License-Identifier: MIT
#include "mdns/sources.h"

#include "mdns/link.h"

namespace mdns {
namespace {

constexpr std::size_t kSourcesMax = 1024;

// A source that has been silent for this long, and of which nothing is cached, is forgotten.
constexpr Time kIdleAfter = 10 * kSecond;

// What a host may say in a second, and in one burst. Two thousand services, each with five records announced twice over one
// protocol, are some 800 kB in their first two seconds.
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
    source.number = static_cast<std::uint32_t>(EndpointHash{link.hash_seed}(host)) | 1;  // the same when it comes again
  }
  sources.idle.set(source, link.now + kIdleAfter);
  return source;
}

bool source_allows(Link& link, Source& source, std::size_t bytes) {
  const Time cost = static_cast<Time>(bytes + kBytesPerDatagram) * kSecond / kBytesPerSecond;
  const Time paid_until = std::max(source.paid_until, link.now - kBurstBytes * kSecond / kBytesPerSecond);
  if (paid_until + cost > link.now) {
    return false;
  }
  source.paid_until = paid_until + cost;
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
    if (source->entries == 0) {  // else its last entry ends it
      sources.by_endpoint.erase(Endpoint(source->endpoint));
    }
  }
}

}  // namespace mdns
