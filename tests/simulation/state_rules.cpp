// SPDX-License-Identifier: MIT
#include "simulation/state_rules.h"
#include "mdns/link_counts.h"

#include <algorithm>

namespace simulation {
namespace {

// A goodbye may be repeated, over the other protocol or by another port; the second after the first one counts.
constexpr Time kGoodbyesApart = 200 * kMillisecond;

// From its last probe for a name on, a host announces it within this time.
constexpr Time kProbedLately = 300 * kMillisecond;

bool is_calm(const World& world, const Medium& medium, Time needed) {
  return !world.is_hostile && medium.calm_since != kNever && world.now - medium.calm_since >= needed;
}

// Whether datagrams of `a` reach `b` over at least one protocol.
bool reaches(const Port& a, const Port& b) {
  return &a == &b || ((a.protocols & b.protocols) != 0 && (!a.medium->is_partitioned || a.side == b.side));
}

bool is_known(const Query& query, Hash hash) {
  return std::any_of(query.known.begin(), query.known.end(), [&](const Known& known) { return known.hash == hash; });
}

const std::vector<Truth>& truths_of(const Medium& medium, Hash set_hash) {
  static const std::vector<Truth> kNone;
  const auto found = medium.truth.find(set_hash);
  return found == medium.truth.end() ? kNone : found->second;
}

std::string subject_of(const Query& query, const std::string& rdata) {
  return text_of(query.name) + " " + std::to_string(query.type) + " " + text_of(query.type, rdata);
}

// The first record that somebody has published for `needed` and the query does not know, having asked for that long;
// null: none.
const Truth* find_missing(const World& world, const Port& port, const Query& query, Time needed) {
  if (world.now - query.since < needed || !is_undisturbed(port, world.now, kSettledWithin)) {
    return nullptr;
  }
  for (const Truth& truth : truths_of(*port.medium, query.set_hash)) {
    const bool is_due = world.now - truth.since >= needed && is_undisturbed(*truth.port, world.now, kSettledWithin);
    if (is_due && reaches(*truth.port, port) && !is_known(query, truth.hash)) {
      return &truth;
    }
  }
  return nullptr;
}

// Whether a record that nobody publishes may still be known. `exactly`: its TTL is over as well.
bool may_be_known(const World& world, const Medium& medium, Hash hash, bool exactly) {
  const auto gone = medium.gone.find(hash);
  if (gone == medium.gone.end() || exactly) {
    return false;
  }
  return gone->second.without_goodbye || world.now - gone->second.at < kKnownWithin;
}

void check_nothing_else(World& world, Port& port, const Query& query, bool exactly) {
  const std::vector<Truth>& truths = truths_of(*port.medium, query.set_hash);
  for (const Known& known : query.known) {
    const bool is_true =
        std::any_of(truths.begin(), truths.end(), [&](const Truth& truth) { return truth.hash == known.hash; });
    if (!is_true && !may_be_known(world, *port.medium, known.hash, exactly) &&
        (exactly || !has_heard_no_goodbye(port, known.hash))) {
      fail(world, &port, exactly ? "known after its TTL" : "withdrawn, and still known",
           subject_of(query, known.rdata));
    }
  }
}

// Whether the port probes for the name, anew after a conflict for instance (section 9): it defends nothing meanwhile.
bool is_probing(const Port& port, const std::string& name) {
  const auto claimed = port.claimed.find(hash_name(name));
  return claimed != port.claimed.end() && !claimed->second.is_announced &&
         port.world->now - claimed->second.probed_at < kProbedLately;
}

void fail_missing(World& world, Port& port, const Query& query, const Truth& truth) {
  fail(world, &port, "published, and not known to who asks",
       subject_of(query, truth.rdata) + " of " + truth.port->host->label);
}

}  // namespace

bool has_heard_no_goodbye(const Port& port, Hash hash) {
  const auto received = port.ledger.received.find(hash);
  return port.holdings.contains(hash) && received != port.ledger.received.end() &&
         received->second.until > port.world->now;
}

bool is_undisturbed(const Port& port, Time now, Time needed) {
  return is_present(port) && port.protocols != mdns::kNoProtocol && now - port.disturbed_at >= needed;
}

void check_set(Medium& medium, World& world, Hash set_hash) {
  const auto queriers = medium.queriers.find(set_hash);
  if (queriers == medium.queriers.end() || !is_calm(world, medium, kSettledWithin)) {
    return;
  }
  for (const auto& [port, tag] : queriers->second) {
    const Query& query = port->queries.at(tag);
    if (const Truth* const missing = find_missing(world, *port, query, kKnownWithin)) {
      fail_missing(world, *port, query, *missing);
    }
    if (is_undisturbed(*port, world.now, kSettledWithin)) {
      check_nothing_else(world, *port, query, false);
    }
  }
}

void plan_check(Medium& medium, World& world, Hash set_hash) {
  if (!world.is_hostile && medium.calm_since != kNever) {
    call_at(world, world.now + kKnownWithin, [&medium, &world, set_hash] { check_set(medium, world, set_hash); });
  }
}

void check_removal(Port& port, const Query& query, const Known& known) {
  World& world = *port.world;
  if (!is_calm(world, *port.medium, kSettledWithin) || !is_undisturbed(port, world.now, kSettledWithin)) {
    return;
  }
  const auto own = port.holdings.find(known.hash);
  if (own != port.holdings.end() && own->second.established == 0 && own->second.gone_at == world.now) {
    return;  // its own withdrawal: another host that has it rescues it
  }
  for (const Truth& truth : truths_of(*port.medium, query.set_hash)) {
    const bool is_old = world.now - truth.since >= kKnownWithin || known.since > truth.since;
    if (truth.hash == known.hash && is_old && is_undisturbed(*truth.port, world.now, kSettledWithin) &&
        reaches(*truth.port, port) && !is_probing(*truth.port, query.name)) {
      fail(world, &port, "a published record is reported removed",
           subject_of(query, truth.rdata) + " of " + truth.port->host->label);
    }
  }
  const auto goodbye = port.ledger.goodbyes_received.find(known.hash);
  const auto flush = port.ledger.flushes_received.find(query.set_hash);
  const bool was_flushed = flush != port.ledger.flushes_received.end() &&
                           world.now - flush->second >= kSecond - kGoodbyesApart && flush->second >= known.since;
  const auto received = port.ledger.received.find(known.hash);
  const bool is_over = received != port.ledger.received.end() && received->second.until <= world.now;
  if (!was_flushed && !is_over && goodbye != port.ledger.goodbyes_received.end() && goodbye->second > known.since &&
      world.now - goodbye->second < kSecond - kGoodbyesApart) {
    fail(world, &port, "removed within a second of the goodbye", subject_of(query, known.rdata));
  }
}

namespace {

// What a port owns under a unique name: its records by type.
struct Ownership {
  Port* port = nullptr;
  std::string name;
  std::map<std::uint16_t, std::vector<Hash>> records;
};

// Whether both may own the name: their records of each type that both have are the same. If probes were lost, they may
// have no type in common (`may_differ`): that is no conflict (section 9).
bool agree(const Ownership& a, const Ownership& b, bool may_differ) {
  bool same = false;
  for (const auto& [type, hashes] : a.records) {
    const auto other = b.records.find(type);
    if (other != b.records.end() && other->second != hashes) {
      return false;
    }
    same = same || other != b.records.end();
  }
  return same || may_differ;
}

void add_ownership(std::map<Hash, std::vector<Ownership>>& owners, Port& port, const Publication& publication) {
  std::vector<Ownership>& all = owners[publication.name_hash];
  if (all.empty() || all.back().port != &port) {
    all.push_back({&port, publication.name, {}});
  }
  for (std::size_t at = 0; at < publication.records.size(); ++at) {
    std::vector<Hash>& hashes = all.back().records[publication.records[at].type];
    if (std::find(hashes.begin(), hashes.end(), publication.hashes[at]) == hashes.end()) {
      hashes.push_back(publication.hashes[at]);
      std::sort(hashes.begin(), hashes.end());
    }
  }
}

void check_agreement(World& world, const std::vector<Ownership>& owners) {
  const bool was_lossy = owners.front().port->medium->calm_since >= 0;
  for (std::size_t a = 0; a < owners.size(); ++a) {
    for (std::size_t b = a + 1; b < owners.size(); ++b) {
      if (reaches(*owners[a].port, *owners[b].port) && !agree(owners[a], owners[b], was_lossy)) {
        fail(world, owners[a].port, "a unique name has two owners",
             text_of(owners[a].name) + " also of " + owners[b].port->host->label);
      }
    }
  }
}

}  // namespace

namespace {

void check_borrowed(World& world, Port& port, const Publication& publication) {
  for (const std::uint16_t type : {mdns::kTypeA, mdns::kTypeAaaa}) {
    for (const Truth& truth : truths_of(*port.medium, hash_set(publication.name_hash, type))) {
      const auto own = port.holdings.find(truth.hash);
      const bool is_same = own != port.holdings.end() && own->second.established > 0;
      const bool is_due =
          world.now - truth.since >= kKnownWithin && is_undisturbed(*truth.port, world.now, kSettledWithin);
      if (truth.unique && !is_same && is_due && reaches(*truth.port, port)) {
        fail(world, &port, "a name is borrowed that has an owner",
             text_of(publication.name) + " of " + truth.port->host->label);
      }
    }
  }
}

}  // namespace

namespace {

// Whether a record of the name was multicast since then by another host.
bool was_sent_since(const Port& port, Hash name_hash, Time since) {
  for (const std::uint16_t type : {mdns::kTypeA, mdns::kTypeAaaa}) {
    for (const Truth& truth : truths_of(*port.medium, hash_set(name_hash, type))) {
      for (const auto& times : truth.port->ledger.multicast) {
        const auto last = times.find(truth.hash);
        if (truth.port != &port && last != times.end() && last->second > since) {
          return true;
        }
      }
    }
  }
  return false;
}

// Whether the first probe was just sent and no host that can have received it has sent anything since: a datagram that
// was sent before the probe arrived looks like an answer to it.
bool is_crossed(const Port& port, const Publication& publication) {
  const auto claimed = port.claimed.find(publication.name_hash);
  return claimed != port.claimed.end() && claimed->second.probes == 1 &&
         port.world->now - claimed->second.probed_at <= 2 * port.medium->weather.delay &&
         !was_sent_since(port, publication.name_hash, claimed->second.probed_at + port.medium->weather.delay);
}

}  // namespace

void check_conflict(Port& port, const Publication& publication) {
  const World& world = *port.world;
  const auto found = port.medium->claimants.find(publication.name_hash);
  const bool has_claimant =
      found != port.medium->claimants.end() &&
      std::any_of(found->second.begin(), found->second.end(), [&](const Port* each) { return each != &port; });
  if (world.is_hostile || has_claimant || is_crossed(port, publication)) {
    return;
  }
  if (publication.claim == mdns::Claim::yielding) {
    fail(*port.world, &port, "a borrowed name is given up that nobody owns", text_of(publication.name));
  } else if (publication.claim == mdns::Claim::unique && port.medium->weather.loss == 0) {
    fail(*port.world, &port, "a name is lost to those who only borrow it", text_of(publication.name));
  }
}

void check_owners(World& world, Medium& medium) {
  std::map<Hash, std::vector<Ownership>> owners;
  for (Port* const port : medium.ports) {
    for (const auto& [tag, publication] : port->publications) {
      if (!is_undisturbed(*port, world.now, kSettledWithin)) {
        continue;
      }
      if (!publication.is_established && world.now - publication.since >= kSettledWithin) {
        fail(world, port, "a publication is neither established nor in conflict", text_of(publication.name));
      }
      const auto claimed = port->claimed.find(publication.name_hash);
      const bool is_settled =
          claimed != port->claimed.end() && world.now - claimed->second.changed_at >= kSettledWithin;
      if (publication.is_established && is_owning(publication.claim) && is_settled) {
        add_ownership(owners, *port, publication);
      }
      if (publication.is_established && publication.claim == mdns::Claim::yielding) {
        check_borrowed(world, *port, publication);
      }
    }
  }
  for (const auto& [name, all] : owners) {
    check_agreement(world, all);
  }
}

void check_knowledge(World& world, Medium& medium, bool exactly, const Port* only) {
  for (Port* const port : medium.ports) {
    if ((only != nullptr && port != only) || !is_undisturbed(*port, world.now, kSettledWithin)) {
      continue;
    }
    for (const auto& [tag, query] : port->queries) {
      if (const Truth* const missing = find_missing(world, *port, query, kKnownWithin)) {
        fail_missing(world, *port, query, *missing);
      }
      if (exactly) {
        check_nothing_else(world, *port, query, true);
      }
    }
  }
}

void count_missing(World& world, Medium& medium, Time needed) {
  for (Port* const port : medium.ports) {
    for (const auto& [tag, query] : port->queries) {
      if (world.now - query.since < needed || !is_undisturbed(*port, world.now, needed)) {
        continue;
      }
      for (const Truth& truth : truths_of(medium, query.set_hash)) {
        if (world.now - truth.since >= needed && is_undisturbed(*truth.port, world.now, needed) &&
            reaches(*truth.port, *port)) {
          ++world.sums.expected;
          world.sums.missing += is_known(query, truth.hash) ? 0 : 1;
        }
      }
    }
  }
}

void check_silence(World& world) {
  for (Port& port : world.ports) {
    if (!is_present(port)) {
      continue;
    }
    const mdns::LinkCounts counts = mdns::link_counts(*port.link);
    if (!port.is_closing &&
        counts.cached + counts.questions + counts.published + counts.names + counts.sources + counts.waiting != 0) {
      fail(world, &port, "a silent link keeps something",
           "cached " + std::to_string(counts.cached) + " questions " + std::to_string(counts.questions) +
               " published " + std::to_string(counts.published) + " names " + std::to_string(counts.names) +
               " sources " + std::to_string(counts.sources) + " waiting " + std::to_string(counts.waiting));
    }
    if (mdns::link_deadline(*port.link) != kNever) {
      fail(world, &port, "a silent link plans something",
           std::to_string(mdns::link_deadline(*port.link) - clock_of(port)) + " us");
    }
  }
}

}  // namespace simulation
