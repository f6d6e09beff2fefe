// SPDX-License-Identifier: MIT
// Links in virtual time with nothing around them: datagrams arrive, deadlines come, events are acted upon. Unlike a
// World (world.h) it keeps no books and checks nothing, so that thousands of services cost little more than the
// engine's own work on them.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <queue>
#include <span>
#include <unordered_map>
#include <vector>

#include "mdns/mdns.h"

namespace simulation {

struct Bare;

// One engine on one medium, and what its events are for.
struct BareLink {
  Bare* bare = nullptr;
  int medium = 0;
  unsigned number = 0;  // the last part of its addresses
  mdns::LinkPtr link;
  std::unordered_map<std::uint64_t, std::function<void(const mdns::Event&)>> reports;  // by tag
  mdns::Time deadline = mdns::kNever;
  bool is_dirty = false;
};

struct BareFlight {
  mdns::Time at = 0;
  std::uint64_t order = 0;
  BareLink* to = nullptr;
  mdns::Endpoint source;
  std::shared_ptr<const std::vector<std::uint8_t>> bytes;

  bool operator>(const BareFlight& other) const { return at != other.at ? at > other.at : order > other.order; }
};

struct Bare {
  std::uint64_t seed = 0;  // decides the random delays of the links that are made
  mdns::Time now = mdns::kSecond;
  std::uint64_t last_tag = 0, last_order = 0;
  std::deque<BareLink> links;
  std::priority_queue<BareFlight, std::vector<BareFlight>, std::greater<>> flights;
  std::vector<BareLink*> dirty;
};

BareLink& bare_link(Bare& bare, int medium);

// The calls of mdns.h.
mdns::PublicationId bare_publish(BareLink& link, std::string_view name, std::span<const mdns::RecordData> records,
                                 mdns::Claim claim, std::function<void(const mdns::Event&)> report = {});
bool bare_update(BareLink& link, mdns::PublicationId id, const mdns::RecordData& data);
void bare_withdraw(BareLink& link, mdns::PublicationId id);
mdns::QueryId bare_query(BareLink& link, std::string_view name, std::uint16_t type,
                         std::function<void(const mdns::Event&)> report);
void bare_stop(BareLink& link, mdns::QueryId id);

// A datagram arrives at all links of the medium over each of the protocols, from addresses that no link has.
void bare_inject(Bare& bare, int medium, mdns::Protocols protocols, std::vector<std::uint8_t> bytes);

void bare_run(Bare& bare, mdns::Time duration);

}  // namespace simulation
