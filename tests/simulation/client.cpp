// SPDX-License-Identifier: MIT
#include "simulation/client.h"

#include <algorithm>
#include <utility>

#include "simulation/books.h"
#include "simulation/state_rules.h"

namespace simulation {
namespace {

Hash hash_of(Hash name_hash, const mdns::RecordData& record) {
  return hash_record(hash_set(name_hash, record.type), record.type, record.rdata);
}

}  // namespace

Tag publish(Port& port, std::string_view name, std::vector<mdns::RecordData> records, mdns::Claim claim,
            std::function<void(bool established)> report) {
  World& world = *port.world;
  const Tag tag = world.next_tag++;
  Publication& publication = port.publications[tag];
  publication = {std::string(name), hash_name(name), std::move(records), {}, claim, 0,
                 world.now,         false,           std::move(report)};
  for (const mdns::RecordData& record : publication.records) {
    publication.hashes.push_back(hash_of(publication.name_hash, record));
  }
  for (std::size_t at = 0; at < publication.records.size(); ++at) {
    hold(port, publication, at);
  }
  claim_name(port, publication);
  note(world, &port, "publishes",
       text_of(name) + (claim == mdns::Claim::shared     ? " shared"
                        : claim == mdns::Claim::yielding ? " as long as nobody owns it"
                                                         : ""));
  publication.id = mdns::publish(*port.link, clock_of(port), name, publication.records, claim, tag);
  if (publication.id == 0) {
    fail(world, &port, "publish refuses well-formed records", text_of(name));
  }
  touch(port);
  return tag;
}

namespace {

// The record at that place of the publication has other data.
void replace(Port& port, Tag tag, Publication& publication, std::size_t at, const mdns::RecordData& record) {
  let_go(port, tag, publication, at, false);
  publication.records[at] = record;
  publication.hashes[at] = hash_of(publication.name_hash, record);
  hold(port, publication, at);
  if (publication.is_established) {
    add_truth(port, tag, publication, at);
  }
  if (publication.claim != mdns::Claim::shared) {
    port.claimed[publication.name_hash].changed_at = port.world->now;
  }
}

}  // namespace

bool update(Port& port, Tag tag, const mdns::RecordData& record, bool for_all) {
  const auto found = port.publications.find(tag);
  if (found == port.publications.end()) {
    return port.lost.contains(tag);  // reported in a moment; its owner then tries again with the new data
  }
  Publication& publication = found->second;
  const auto old = std::find_if(publication.records.begin(), publication.records.end(),
                                [&](const mdns::RecordData& each) { return each.type == record.type; });
  note(*port.world, &port, "updates", text_of(publication.name) + " " + std::to_string(record.type));
  touch(port);
  const bool done = mdns::publication_update(*port.link, clock_of(port), publication.id, record, for_all);
  if (!done || old == publication.records.end() || old->rdata == record.rdata) {
    return done;
  }
  const Hash replaced = publication.hashes[static_cast<std::size_t>(old - publication.records.begin())];
  for (auto& [each, other] : port.publications) {
    const auto same = std::find(other.hashes.begin(), other.hashes.end(), replaced);
    if (same != other.hashes.end() && (each == tag || (for_all && other.claim != mdns::Claim::shared))) {
      replace(port, each, other, static_cast<std::size_t>(same - other.hashes.begin()), record);
    }
  }
  return true;
}

void withdraw(Port& port, Tag tag, bool with_goodbye) {
  port.lost.erase(tag);
  const auto found = port.publications.find(tag);
  if (found == port.publications.end()) {
    return;
  }
  note(*port.world, &port, with_goodbye ? "withdraws" : "withdraws without a goodbye", text_of(found->second.name));
  mdns::publication_withdraw(*port.link, clock_of(port), found->second.id, with_goodbye);
  end(port, tag, !with_goodbye);
  touch(port);
}

Tag query(Port& port, std::string_view name, std::uint16_t type,
          std::function<void(bool added, const std::string& rdata)> report) {
  World& world = *port.world;
  const Tag tag = world.next_tag++;
  const Hash set_hash = hash_set(hash_name(name), type);
  Query& query = port.queries[tag];
  query = {std::string(name), type, set_hash, 0, world.now, {}, std::move(report)};
  port.medium->queriers[set_hash].emplace_back(&port, tag);
  note(world, &port, "asks for", text_of(name) + " " + std::to_string(type));
  query.id = mdns::query_start(*port.link, clock_of(port), name, type, tag);
  if (query.id == 0) {
    fail(world, &port, "query_start refuses a whole name", text_of(name));
  }
  plan_check(*port.medium, world, set_hash);
  touch(port);
  return tag;
}

void stop(Port& port, Tag tag) {
  const auto found = port.queries.find(tag);
  if (found == port.queries.end()) {
    return;
  }
  note(*port.world, &port, "asks no more for", text_of(found->second.name) + " " + std::to_string(found->second.type));
  mdns::query_stop(*port.link, clock_of(port), found->second.id);
  std::erase(port.medium->queriers[found->second.set_hash], std::pair(&port, tag));
  port.ledger.stopped[found->second.set_hash] = port.world->now;
  port.queries.erase(found);
  touch(port);
}

namespace {

// The port's unique names must be probed for again; its questions may be sent again at once.
void begin_anew(Port& port) {
  cut_off(port);
  for (auto& [name, claimed] : port.claimed) {
    claimed.probes = 0;
    claimed.was_owned = false;
    claimed.is_announced = false;
    claimed.owned_until = -1000 * kSecond;
  }
  for (const auto protocol : {0, 1}) {
    port.ledger.asked[protocol].clear();
    port.ledger.probed[protocol].clear();
  }
}

}  // namespace

void set_protocols(Port& port, mdns::Protocols protocols) {
  note(*port.world, &port, "has protocols", std::to_string(protocols));
  cut_off(port);
  if ((protocols & ~port.protocols) != 0) {
    begin_anew(port);
  }
  port.protocols = protocols;
  touch(port);
  mdns::link_set_protocols(*port.link, clock_of(port), protocols);
}

void restart(Port& port, bool was_down) {
  note(*port.world, &port, "begins anew", was_down ? "after it was down" : "");
  begin_anew(port);
  touch(port);
  mdns::link_restart(*port.link, clock_of(port), was_down);
}

void fall_asleep(Host& host) {
  for (Port* const port : host.ports) {
    note(*port->world, port, "falls asleep", "");
    cut_off(*port);
  }
  host.is_asleep = true;
}

void wake_up(Host& host) {
  if (!host.is_alive || !std::exchange(host.is_asleep, false)) {
    return;
  }
  for (Port* const port : host.ports) {
    restart(*port, true);
  }
}

void vanish(Host& host) {
  for (Port* const port : host.ports) {
    note(*port->world, port, "vanishes", "");
    cut_off(*port);
    while (!port->publications.empty()) {
      end(*port, port->publications.begin()->first, true);
    }
    for (const auto& [tag, query] : port->queries) {
      std::erase(port->medium->queriers[query.set_hash], std::pair(port, tag));
    }
    port->queries.clear();
  }
  host.is_alive = false;
}

void retire(Port& port, bool at_once) {
  port.forwarded.clear();
  while (!port.queries.empty()) {
    stop(port, port.queries.begin()->first);
  }
  if (at_once) {
    port.is_closing = true;
    mdns::link_withdraw_all(*port.link, clock_of(port));
  }
  while (!port.publications.empty()) {
    const Tag tag = port.publications.begin()->first;
    if (at_once) {
      end(port, tag, false);
    } else {
      withdraw(port, tag);
    }
  }
  touch(port);
}

namespace {

void note_knowledge(Port& port, const mdns::Event& event) {
  World& world = *port.world;
  const bool added = event.kind == mdns::Event::Kind::added;
  const auto found = port.queries.find(event.tag);
  if (found == port.queries.end()) {
    fail(world, &port, "an event for a query that has been stopped", text_of(event.type, event.rdata));
    return;
  }
  Query& query = found->second;
  const Hash hash = hash_record(query.set_hash, query.type, event.rdata);
  note(world, &port, added ? "gets" : "loses", text_of(query.name) + " " + text_of(query.type, event.rdata));
  const auto known =
      std::find_if(query.known.begin(), query.known.end(), [&](const Known& each) { return each.hash == hash; });
  if (event.type != query.type || event.id != query.id) {
    fail(world, &port, "an event of another query's type or number", text_of(query.name));
  } else if (added == (known != query.known.end())) {
    fail(world, &port, added ? "a record is reported twice" : "a record that was not reported is removed",
         text_of(query.name));
  } else if (added) {
    query.known.push_back({hash, event.rdata, world.now, event.is_unique});
  } else {
    const Known known_before = *known;
    query.known.erase(known);
    check_removal(port, query, known_before);
  }
}

void note_established(Port& port, const mdns::Event& event) {
  const auto found = port.publications.find(event.tag);
  if (found == port.publications.end()) {
    return;  // withdrawn in the meantime
  }
  Publication& publication = found->second;
  note(*port.world, &port, event.kind == mdns::Event::Kind::established ? "owns" : "has lost",
       text_of(publication.name));
  if (event.kind == mdns::Event::Kind::conflict) {
    check_conflict(port, publication);
    port.lost.emplace(event.tag, std::move(publication.report));
    end(port, event.tag, true);
    return;
  }
  if (publication.is_established) {
    return;
  }
  publication.is_established = true;
  for (std::size_t at = 0; at < publication.records.size(); ++at) {
    add_truth(port, event.tag, publication, at);
  }
}

}  // namespace

void take_note(Port& port, const std::vector<mdns::Event>& events) {
  port.world->sums.events += events.size();
  for (const mdns::Event& event : events) {
    if (event.kind == mdns::Event::Kind::added || event.kind == mdns::Event::Kind::removed) {
      note_knowledge(port, event);
    } else {
      note_established(port, event);
    }
  }
}

void act_upon(Port& port, const std::vector<mdns::Event>& events) {
  for (const mdns::Event& event : events) {
    const auto query = port.queries.find(event.tag);
    if (query != port.queries.end() && query->second.report) {
      const auto report = query->second.report;
      report(event.kind == mdns::Event::Kind::added, event.rdata);
    }
    const auto lost = port.lost.extract(event.tag);
    if (!lost.empty() && lost.mapped()) {
      lost.mapped()(false);
    }
    const auto publication = port.publications.find(event.tag);
    if (publication != port.publications.end() && publication->second.report) {
      const auto report = publication->second.report;
      report(true);
    }
  }
}

}  // namespace simulation
