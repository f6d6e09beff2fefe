// SPDX-License-Identifier: MIT
#include "simulation/books.h"

#include <algorithm>

#include "simulation/state_rules.h"

namespace simulation {
namespace {

// A name that was given up less than this ago may be taken up again without probes.
constexpr Time kRecentlyOwned = kSecond / 2;

// By then the second announcement of a change has gone out: two intervals of a second each, the first one where it
// changes all the time.
constexpr Time kLastSaidWithin = 2200 * kMillisecond;

bool has_said_since(const Port& port, Hash hash, Time since) {
  return std::ranges::any_of(port.ledger.multicast, [&](const auto& times) {
    const auto last = times.find(hash);
    return last != times.end() && last->second >= since;
  });
}

// Whether caches keep the record that the port lets go: it was left in them without a goodbye, and the port, which has
// not said it yet, sends none either.
bool stays_left(const Port& port, const Truth& truth) {
  return truth.was_left && !has_said_since(port, truth.hash, truth.since);
}

void remove_truth(Port& port, Tag tag, const Publication& publication, std::size_t at, bool without_goodbye) {
  Medium& medium = *port.medium;
  const Hash set_hash = hash_set(publication.name_hash, publication.records[at].type);
  const Hash hash = publication.hashes[at];
  std::vector<Truth>& truths = medium.truth[set_hash];
  bool unheard =
      without_goodbye || medium.calm_since == kNever || !is_undisturbed(port, port.world->now, kSettledWithin);
  std::erase_if(truths, [&](const Truth& truth) {
    const bool is_it = truth.port == &port && truth.tag == tag && truth.hash == hash;
    unheard |= is_it && stays_left(port, truth);
    return is_it;
  });
  if (unheard) {
    medium.left_without_goodbye.insert(hash);
  }
  if (std::none_of(truths.begin(), truths.end(), [&](const Truth& truth) { return truth.hash == hash; })) {
    medium.gone[hash] = {port.world->now, medium.left_without_goodbye.erase(hash) > 0};
  }
  Holding& holding = port.holdings[hash];
  if (--holding.established == 0) {
    holding.owes_goodbye = !without_goodbye;
    holding.gone_at = port.world->now;
  }
  plan_check(medium, *port.world, set_hash);
}

}  // namespace

void claim_name(Port& port, const Publication& publication) {
  if (publication.claim == mdns::Claim::shared) {
    return;
  }
  if (is_owning(publication.claim)) {
    port.medium->claimants[publication.name_hash].insert(&port);
  }
  Claimed& claimed = port.claimed[publication.name_hash];
  const Time now = port.world->now;
  claimed.yielding += is_owning(publication.claim) ? 0 : 1;
  if (claimed.publications++ == 0) {
    for (auto& probed : port.ledger.probed) {
      probed.erase(publication.name_hash);
    }
    if (claimed.changed_at != now) {  // given up and taken up again at once, it is as it was
      claimed.was_owned = now - claimed.owned_until < kRecentlyOwned;
      claimed.is_announced = false;
      claimed.probes = 0;
    }
  }
  claimed.changed_at = now;
}

void unclaim_name(Port& port, const Publication& publication) {
  if (publication.claim == mdns::Claim::shared) {
    return;
  }
  Claimed& claimed = port.claimed[publication.name_hash];
  --claimed.publications;
  claimed.yielding -= is_owning(publication.claim) ? 0 : 1;
  claimed.changed_at = port.world->now;
  if (publication.is_established) {
    claimed.owned_until = port.world->now;
  }
}

void add_truth(Port& port, Tag tag, const Publication& publication, std::size_t at) {
  Medium& medium = *port.medium;
  const mdns::RecordData& record = publication.records[at];
  const Hash set_hash = hash_set(publication.name_hash, record.type);
  const bool unique = is_owning(publication.claim);
  const auto gone = medium.gone.extract(publication.hashes[at]);
  const bool was_left = !gone.empty() && gone.mapped().without_goodbye;
  medium.truth[set_hash].push_back(
      {&port, tag, publication.hashes[at], record.rdata, port.world->now, unique, was_left});
  Holding& holding = port.holdings[publication.hashes[at]];
  ++holding.established;
  holding.owes_goodbye = false;
  holding.gone_at = holding.goodbye_at = kNever;
  holding.unique = unique;
  holding.yielding = publication.claim == mdns::Claim::yielding;
  plan_check(medium, *port.world, set_hash);
}

void cut_off(Port& port) {
  port.disturbed_at = port.world->now;
  for (const auto& [hash, holding] : port.holdings) {
    const auto gone = port.medium->gone.find(hash);
    if (holding.gone_at != kNever && port.world->now - holding.gone_at < kLastSaidWithin &&
        gone != port.medium->gone.end()) {
      gone->second.without_goodbye = true;
    }
  }
}

void hold(Port& port, const Publication& publication, std::size_t at) {
  ++port.holdings[publication.hashes[at]].holders;
  const mdns::RecordData& record = publication.records[at];
  port.medium->ttls.emplace(publication.hashes[at],
                            record.ttl != 0 ? record.ttl : mdns::usual_ttl(publication.name, record.type));
}

void let_go(Port& port, Tag tag, const Publication& publication, std::size_t at, bool without_goodbye) {
  if (publication.is_established) {
    remove_truth(port, tag, publication, at, without_goodbye);
  }
  --port.holdings[publication.hashes[at]].holders;
}

void end(Port& port, Tag tag, bool without_goodbye) {
  const auto node = port.publications.extract(tag);
  const Publication& publication = node.mapped();
  for (std::size_t at = 0; at < publication.records.size(); ++at) {
    let_go(port, tag, publication, at, without_goodbye);
  }
  unclaim_name(port, publication);
}

}  // namespace simulation
