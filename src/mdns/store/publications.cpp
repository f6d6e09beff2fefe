// SPDX-License-Identifier: MIT
#include "mdns/store/publications.h"

#include <algorithm>

#include "mdns/schedule/announcements.h"
#include "mdns/schedule/answers.h"
#include "mdns/schedule/probes.h"
#include "mdns/store/zone.h"

namespace mdns {
namespace {

// Whether publishing the data as exclusive conflicts with another exclusive publication of this link: one that has
// other data of the type. The publication `but` and the record `old` do not count.
bool conflicts_on_link(const OwnedName& owned, const RecordData& data, const Publication* but, const OwnedRecord* old) {
  const auto differs = [&](const OwnedRecord* record) {
    return record != old && record->type == data.type && !same_rdata(data.type, record->rdata, data.rdata);
  };
  return std::ranges::any_of(owned.claimants, [&](const Publication* other) {
    return other != but && other->claim == Claim::exclusive && std::ranges::any_of(other->records, differs);
  });
}

void establish_publication(Link& link, Publication& publication) {
  publication.is_established = true;
  link.events.push_back({Event::Kind::established, publication.id, publication.tag, 0, 0, {}});
}

// Starts a new publication: probes for its name if need be, or else makes its records live at once and reports it as
// established.
void start_publication(Link& link, Publication& publication) {
  OwnedName& owned = *publication.owner;
  const bool needs_claim =
      publication.claim != Claim::shared &&
      (publication.records.empty() || !std::ranges::all_of(publication.records, &OwnedRecord::is_live));
  const bool proposes_more = owned.state == NameState::probing && !yields(owned);
  if (needs_claim && (owned.state == NameState::unclaimed || proposes_more)) {
    probe_begin(link, owned);
  }
  if (needs_claim && owned.state != NameState::owned) {
    return;
  }
  if (needs_claim && yields(owned) && owned.probed_by_other_at + kSecond > link.now) {
    name_lost(link, owned);  // the other host's probes would conflict with a further address
    return;
  }
  for (OwnedRecord* record : publication.records) {
    if (!record->is_live) {
      go_live(link, *record);
    }
  }
  establish_publication(link, publication);
}

// Replaces the publication's record `old` by one with the new data. If it is unique, the cache-flush bit of the new
// data's announcement removes the old data from caches; if it is shared, its goodbye is sent in the same packet (RFC
// 6762 section 8.4).
void replace_record(Link& link, Publication& publication, OwnedRecord& old, const RecordData& data) {
  OwnedRecord& record = record_hold(link, *publication.owner, data, old.is_unique);
  if (&record == &old) {  // equal data: only letters of a name in it differ in case
    --old.holders;
    return;
  }
  *std::ranges::find(publication.records, &old) = &record;  // one of them, if it has the record twice: one holder more
                                                            // is counted
  const bool is_leaving = old.holders == 1 && was_multicast(old) && !old.without_goodbye;
  if (old.is_live) {
    const bool is_unannounced = old.is_change || !was_multicast(old);
    set_live(link, record, true);
    announce_change(link, record, is_unannounced ? old.announcement.at : kNever);
  }
  record_unhold(link, old, true);
  if (is_leaving && old.is_unique && record.is_unique) {
    link.announcer.goodbyes.set(old, kNever);
  } else if (is_leaving && record.announcement.at != kNever) {
    link.announcer.goodbyes.set(old, record.announcement.at);
  }
}

}  // namespace

void name_established(Link& link, OwnedName& owned) {
  owned.state = NameState::owned;
  for (OwnedRecord* record : owned.records) {
    if (is_claimed(*record)) {
      record->without_goodbye = false;
      set_live(link, *record, true);
      announce(link, *record);
    }
  }
  for (Publication* publication : owned.claimants) {
    if (!publication->is_established) {
      establish_publication(link, *publication);
    }
  }
}

void name_reprobe(Link& link, OwnedName& owned) {
  for (OwnedRecord* record : owned.records) {
    if (is_claimed(*record)) {
      record->is_live = false;
      announce_stop(link, *record);
      answer_cancel(link, *record, kBothProtocols);
    }
  }
  probe_begin(link, owned);
}

void name_lost(Link& link, OwnedName& owned) {
  ++link.conflicts;
  probe_stop(link, owned);
  for (const Publication* loser : std::vector<Publication*>(owned.claimants)) {
    const Event conflict{Event::Kind::conflict, loser->id, loser->tag, 0, 0, {}};
    publication_withdraw(link, link.now, loser->id, false);
    link.events.push_back(conflict);
  }
}

void publications_restart(Link& link) {
  for (const auto& [key, entry] : link.names) {
    OwnedName* owned = entry->owned.get();
    if (owned == nullptr) {
      continue;
    }
    if (!owned->claimants.empty() && owned->state != NameState::unclaimed) {
      name_reprobe(link, *owned);
    }
    for (OwnedRecord* record : owned->records) {
      if (record->holders > 0 && !is_claimed(*record)) {
        announce(link, *record);
      }
    }
  }
}

PublicationId publish(Link& link, Time now, std::string_view name, std::span<const RecordData> records, Claim claim,
                      std::uint64_t tag) {
  link.now = now;
  OwnedName& owned = owned_get(link, name);
  const PublicationId id = ++link.last_id;
  const auto is_taken = [&owned](const RecordData& data) { return conflicts_on_link(owned, data, nullptr, nullptr); };
  if (claim == Claim::exclusive && std::ranges::any_of(records, is_taken)) {
    link.events.push_back({Event::Kind::conflict, id, tag, 0, 0, {}});
    return id;
  }
  Publication& publication = link.zone.publications[id] = {id, tag, &owned, claim, false, {}};
  for (const RecordData& data : records) {
    publication.records.push_back(&record_hold(link, owned, data, claim == Claim::unique || claim == Claim::exclusive));
  }
  if (claim != Claim::shared) {
    owned.claimants.push_back(&publication);
  }
  start_publication(link, publication);
  return id;
}

bool publication_update(Link& link, Time now, PublicationId id, const RecordData& data, bool for_all) {
  link.now = now;
  const auto found = link.zone.publications.find(id);
  if (found == link.zone.publications.end()) {
    return false;
  }
  Publication& publication = found->second;
  const auto held = std::ranges::find(publication.records, data.type, &OwnedRecord::type);
  if (held == publication.records.end()) {
    return false;
  }
  OwnedRecord& old = **held;
  OwnedName& owned = *publication.owner;
  if (old.rdata == data.rdata) {
    return true;
  }
  if (publication.claim == Claim::exclusive && conflicts_on_link(owned, data, &publication, for_all ? &old : nullptr)) {
    return false;
  }
  for (Publication* other : owned.claimants) {
    if (for_all && other != &publication && std::ranges::find(other->records, &old) != other->records.end()) {
      replace_record(link, *other, old, data);
    }
  }
  replace_record(link, publication, old, data);
  return true;
}

void publication_withdraw(Link& link, Time now, PublicationId id, bool with_goodbye) {
  link.now = now;
  const auto node = link.zone.publications.extract(id);
  if (node.empty()) {
    return;
  }
  const Publication& publication = node.mapped();
  std::erase(publication.owner->claimants, &publication);
  for (OwnedRecord* record : publication.records) {
    record_unhold(link, *record, with_goodbye);
  }
  owned_review(link, *publication.owner);
}

void link_hold_goodbyes(Link& link, Time now, Time until) {
  link.now = now;
  link.goodbyes_at = std::max(link.goodbyes_at, until);
}

void link_withdraw_all(Link& link, Time now, bool hands_over) {
  link.now = now;
  link.goodbyes_at = kLongAgo;
  link.is_closing = true;
  while (!link.zone.publications.empty()) {
    publication_withdraw(link, now, link.zone.publications.begin()->first, !hands_over);
  }
  for (OwnedRecord* record : std::vector<OwnedRecord*>(link.announcer.goodbyes.items)) {
    goodbye_queue(link, *record);
  }
  link.outbox.urgent.clear();
}

std::vector<Published> link_published(const Link& link) {
  std::vector<Published> all;
  for (const auto& [id, publication] : link.zone.publications) {
    for (const OwnedRecord* record : publication.records) {
      if (publication.is_established && record->is_live) {
        const Claim claim = publication.claim == Claim::exclusive ? Claim::unique : publication.claim;
        all.push_back({std::string(name_of(*record)),
                       {record->type, record->ttl, record->rdata},
                       claim,
                       record->announcements_left,
                       record->multicast_at});
      }
    }
  }
  return all;
}

PublicationId publish_inherited(Link& link, Time now, const Published& inherited, std::uint64_t tag) {
  OwnedName& owned = owned_get(link, inherited.name);
  if (inherited.claim != Claim::shared && owned.state == NameState::unclaimed) {
    owned.state = NameState::owned;
  }
  OwnedRecord& record = record_hold(link, owned, inherited.data, inherited.claim == Claim::unique);
  record.announcements_left = inherited.announcements_left;
  record.multicast_at = inherited.multicast_at;
  const PublicationId id = publish(link, now, inherited.name, {&inherited.data, 1}, inherited.claim, tag);
  --record.holders;
  return id;
}

}  // namespace mdns
