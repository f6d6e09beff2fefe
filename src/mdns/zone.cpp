// SPDX-License-Identifier: MIT
#include "mdns/zone.h"

#include <algorithm>

#include "mdns/link.h"

namespace mdns {
namespace {

constexpr std::uint16_t kDeniableMax = 255;  // the greatest type in the one window of such an NSEC record

OwnedName& owned_get(Link& link, std::string_view name) {
  NameEntry& entry = name_get(link, name);
  if (entry.owned == nullptr) {
    entry.owned = new OwnedName;
    entry.owned->name = &entry;
  }
  return *entry.owned;
}

// Nobody claims the name any more, or it is over altogether.
void owned_review(Link& link, OwnedName& owned) {
  if (!owned.claimants.empty()) {
    return;
  }
  if (owned.leaving == 0) {
    prober_stop(link, owned);
  }
  if (!owned.records.empty()) {
    return;
  }
  NameEntry& entry = *owned.name;
  entry.owned = nullptr;
  delete &owned;
  name_release(link, entry);
}

// The RRset that the link's own queries ask for, if the record is in no cache entry, too; else null.
RRset* asked_rrset(const Link& link, const OwnedRecord& record) {
  RRset* rrset = rrset_find(*record.owner->name, record.type);
  const bool is_asked = rrset != nullptr && rrset->question != nullptr;
  return is_asked && cache_find(link, key_of(record)) == nullptr ? rrset : nullptr;
}

void review_question(Link& link, const OwnedRecord& record) {
  const RRset* rrset = rrset_find(*record.owner->name, record.type);
  if (rrset != nullptr && rrset->question != nullptr) {
    question_review(link, *rrset->question);
  }
}

// The link's own queries are told of the record.
void report_added(Link& link, OwnedRecord& record) {
  const RRset* rrset = asked_rrset(link, record);
  if (rrset != nullptr && !record.is_reported) {
    querier_report(link, *rrset, Event::Kind::added, record.ttl, record.rdata);
  }
  record.is_reported = true;
  review_question(link, record);
}

// They will be told that it is gone, when the second of its goodbye is over.
void report_removed(Link& link, OwnedRecord& record) {
  RRset* rrset = asked_rrset(link, record);
  if (rrset != nullptr && record.is_reported) {
    cache_keep_for_goodbye(link, *rrset, record.ttl, record.rdata);
  }
  record.is_reported = false;
  review_question(link, record);
}

void become_live(Link& link, OwnedRecord& record) {
  record.is_live = true;
  report_added(link, record);
}

OwnedRecord& record_new(Link& link, OwnedName& owner, const RecordData& data, bool is_unique) {
  auto* record = new OwnedRecord;
  record->owner = &owner;
  record->type = data.type;
  record->ttl = data.ttl != 0 ? data.ttl : usual_ttl(owner.name->name, data.type);
  record->rdata = data.rdata;
  record->is_unique = is_unique;
  record->place = static_cast<std::uint32_t>(owner.records.size());
  owner.records.push_back(record);
  link.zone.records.insert(record);
  return *record;
}

// Takes the record out of everything and frees it, without a goodbye.
void record_free(Link& link, OwnedRecord& record) {
  announcer_stop(link, record);
  responder_stop(link, record);
  record.owner->leaving -= record.holders == 0 && record.is_unique ? 1 : 0;
  link.zone.records.erase(&record);
  std::vector<OwnedRecord*>& records = record.owner->records;
  records[record.place] = records.back();
  records[record.place]->place = record.place;
  records.pop_back();
  record.is_live = false;
  const std::unique_ptr<OwnedRecord> freed(&record);
  report_removed(link, record);
}

// One holder leaves; the last one's leaving withdraws the record.
void record_unhold(Link& link, OwnedRecord& record, bool says_goodbye) {
  if (record.holders > 1) {
    --record.holders;
    return;
  }
  if (!says_goodbye || (!was_multicast(record) && record.superseded.empty())) {
    record_free(link, record);
    return;
  }
  announcer_stop(link, record);
  responder_stop(link, record);
  record.is_live = false;
  record.holders = 0;
  record.owner->leaving += record.is_unique ? 1 : 0;
  report_removed(link, record);
  announcer_say_goodbye(link, record);
}

// The record with that data, held once more; made if nobody publishes it yet. One that is about to get its goodbye is as good
// as new, but everybody knows it.
OwnedRecord& record_hold(Link& link, OwnedName& owner, const RecordData& data, bool is_unique) {
  OwnedRecord* record = zone_find(link, {owner.name, data.type, data.rdata});
  if (record == nullptr) {
    record = &record_new(link, owner, data, is_unique);
  } else if (record->holders == 0) {
    announcer_stop(link, *record);
    owner.leaving -= record->is_unique ? 1 : 0;
    record->is_unique = is_unique;
    record->ttl = data.ttl != 0 ? data.ttl : usual_ttl(owner.name->name, data.type);
  }
  ++record->holders;
  return *record;
}

// Whether an exclusive publication of these data would contradict another one of this link.
bool contradicts(const OwnedName& owned, std::span<const RecordData> records, const Publication* but) {
  for (const Publication* other : owned.claimants) {
    if (other == but || other->claim != Claim::exclusive) {
      continue;
    }
    for (const RecordData& data : records) {
      for (const OwnedRecord* record : other->records) {
        if (record->type == data.type && !same_rdata(data.type, record->rdata, data.rdata)) {
          return true;
        }
      }
    }
  }
  return false;
}

void establish(Link& link, Publication& publication) {
  publication.is_established = true;
  link.events.push_back({Event::Kind::established, publication.id, publication.tag, 0, 0, {}});
}

bool is_all_live(const Publication& publication) {
  return std::ranges::all_of(publication.records, [](const OwnedRecord* record) { return record->is_live; });
}

// Ends the publication in every table; its records are the caller's to let go.
std::unique_ptr<Publication> publication_take(Link& link, PublicationId id) {
  std::erase_if(link.events, [id](const Event& event) { return event.id == id; });
  auto node = link.zone.publications.extract(id);
  if (node.empty()) {
    return nullptr;
  }
  std::unique_ptr<Publication> publication = std::move(node.mapped());
  std::erase(publication->owner->claimants, publication.get());
  return publication;
}

void publication_end(Link& link, PublicationId id, bool says_goodbye) {
  const std::unique_ptr<Publication> publication = publication_take(link, id);
  if (publication == nullptr) {
    return;
  }
  for (OwnedRecord* record : publication->records) {
    record_unhold(link, *record, says_goodbye);
  }
  owned_review(link, *publication->owner);
}

// The data that `old` was said with, and those it had superseded itself, go when `record` is announced.
void inherit_superseded(OwnedRecord& record, OwnedRecord& old) {
  if (was_multicast(old)) {
    record.superseded.push_back({old.rdata, old.multicast_at});
  }
  std::ranges::move(old.superseded, std::back_inserter(record.superseded));
  old.superseded.clear();
  std::erase_if(record.superseded, [&record](const Superseded& former) {
    const bool is_back = same_rdata(record.type, former.rdata, record.rdata);
    record.multicast_at = is_back ? former.multicast_at : record.multicast_at;
    return is_back;
  });
}

// The unique record of the same type that waits for its goodbye: the new one takes its place. Null: none.
OwnedRecord* former_of(const OwnedRecord& record) {
  const auto is_former = [&record](const OwnedRecord* other) {
    return other != &record && other->holders == 0 && other->is_unique && record.is_unique && other->type == record.type;
  };
  const std::vector<OwnedRecord*>& records = record.owner->records;
  const auto found = std::ranges::find_if(records, is_former);
  return found == records.end() ? nullptr : *found;
}

// The record is announced, unless it has never been away and has been announced as often as is due.
void go_live(Link& link, OwnedRecord& record) {
  const std::size_t superseded = record.superseded.size();
  for (OwnedRecord* former = former_of(record); former != nullptr; former = former_of(record)) {
    inherit_superseded(record, *former);
    record_free(link, *former);
  }
  become_live(link, record);
  if (record.superseded.size() > superseded) {
    announce_change(link, record, kNever);
  } else if (!was_multicast(record)) {
    announce(link, record);
  } else {
    announce_rest(link, record);
  }
}

// Whether the name was ours already, or needs no claim.
void start(Link& link, Publication& publication) {
  OwnedName& owned = *publication.owner;
  const bool is_claimed = publication.claim != Claim::shared && !is_all_live(publication);
  if (is_claimed && (owned.state == NameState::unclaimed || owned.state == NameState::probing)) {
    prober_begin(link, owned);
  }
  if (is_claimed && owned.state != NameState::owned) {
    return;
  }
  for (OwnedRecord* record : publication.records) {
    if (!record->is_live) {
      go_live(link, *record);
    }
  }
  establish(link, publication);
}

// `record` stands where `old` stood for one holder.
void supersede(Link& link, OwnedRecord& record, OwnedRecord& old) {
  if (old.holders == 1) {
    inherit_superseded(record, old);
  }
  if (old.is_live) {
    const bool is_unannounced = old.is_change || !was_multicast(old);
    become_live(link, record);
    announce_change(link, record, is_unannounced ? old.announcement.at : kNever);
  }
  record_unhold(link, old, false);
}

}  // namespace

std::size_t OwnedHash::operator()(const RecordKey& key) const { return EntryHash{seed}(key); }

std::size_t OwnedHash::operator()(const OwnedRecord* record) const { return (*this)(key_of(*record)); }

bool OwnedEqual::operator()(const RecordKey& key, const OwnedRecord* record) const {
  return record->owner->name == key.name && record->type == key.type && same_rdata(key.type, record->rdata, key.rdata);
}

RecordKey key_of(const OwnedRecord& record) { return {record.owner->name, record.type, record.rdata}; }

std::string_view name_of(const OwnedRecord& record) { return record.owner->name->name; }

OwnedRecord* zone_find(const Link& link, const RecordKey& key) {
  const auto found = link.zone.records.find(key);
  return found == link.zone.records.end() ? nullptr : *found;
}

void zone_forget(Link& link, OwnedRecord& record) {
  OwnedName& owned = *record.owner;
  record_free(link, record);
  owned_review(link, owned);
}

bool was_multicast(const OwnedRecord& record) { return record.multicast_at[0] != kLongAgo || record.multicast_at[1] != kLongAgo; }

Time last_multicast(const Link& link, const OwnedRecord& record) {
  Time last = kLongAgo;
  for (const Protocols protocol : kEachProtocol) {
    if (link.protocols & protocol) {
      last = std::max(last, record.multicast_at[index_of(protocol)]);
    }
  }
  return last;
}

Time rrset_multicast_at(const OwnedRecord& record, Protocols protocol) {
  Time last = record.multicast_at[index_of(protocol)];
  if (record.is_unique && record.type != kTypeNsec) {
    for (const OwnedRecord* other : record.owner->records) {
      if (other->type == record.type && other->is_unique) {
        last = std::max(last, other->multicast_at[index_of(protocol)]);
      }
    }
  }
  return last;
}

bool was_multicast_since(const Link& link, const OwnedRecord& record, Time time) {
  return std::ranges::all_of(kEachProtocol, [&](Protocols protocol) {
    return (link.protocols & protocol) == 0 || record.multicast_at[index_of(protocol)] > time;
  });
}

bool zone_has_unique(const NameEntry& name, std::uint16_t type) {
  return name.owned != nullptr && name.owned->state == NameState::owned &&
         std::ranges::any_of(name.owned->records, [type](const OwnedRecord* record) {
           return record->type == type && record->is_unique && record->is_live;
         });
}

bool zone_reports(const Link& link, const RecordKey& key) {
  const OwnedRecord* record = key.name->owned == nullptr ? nullptr : zone_find(link, key);
  return record != nullptr && record->is_reported;
}

void zone_report_to(Link& link, const RRset& rrset, const Query& query) {
  if (rrset.name->owned == nullptr) {
    return;
  }
  for (const OwnedRecord* record : rrset.name->owned->records) {
    ++link.steps;
    if (record->type == rrset.type && record->is_reported && cache_find(link, key_of(*record)) == nullptr) {
      link.events.push_back({Event::Kind::added, query.id, query.tag, rrset.type, record->ttl, record->rdata});
    }
  }
}

void zone_name_established(Link& link, OwnedName& owned) {
  owned.state = NameState::owned;
  for (OwnedRecord* record : owned.records) {
    if (record->is_unique && record->holders > 0) {
      become_live(link, *record);
      announce(link, *record);
    }
  }
  for (Publication* publication : owned.claimants) {
    if (!publication->is_established) {
      establish(link, *publication);
    }
  }
}

void zone_name_doubted(Link& link, OwnedName& owned) {
  for (OwnedRecord* record : owned.records) {
    if (record->is_unique && record->holders > 0) {
      record->is_live = false;
      announcer_stop(link, *record);
      responder_stop(link, *record);
    }
  }
  if (owned.denial != nullptr) {
    responder_stop(link, *owned.denial);
  }
}

void zone_name_lost(Link& link, OwnedName& owned) {
  prober_stop(link, owned);
  const std::vector<Publication*> losers = owned.claimants;
  std::vector<Event> conflicts;
  conflicts.reserve(losers.size());
  for (const Publication* loser : losers) {
    conflicts.push_back({Event::Kind::conflict, loser->id, loser->tag, 0, 0, {}});
  }
  for (const Event& conflict : conflicts) {
    publication_end(link, conflict.id, false);
    link.events.push_back(conflict);
  }
}

OwnedRecord* zone_denial(OwnedName& owned) {
  if (owned.state != NameState::owned) {
    return nullptr;
  }
  std::vector<std::uint16_t> types;
  types.reserve(owned.records.size());
  for (const OwnedRecord* record : owned.records) {
    if (record->holders > 0) {
      types.push_back(record->type);
    }
  }
  if (std::ranges::any_of(types, [](std::uint16_t type) { return type > kDeniableMax; })) {
    return nullptr;
  }
  if (owned.denial == nullptr) {
    owned.denial = std::make_unique<OwnedRecord>();
    owned.denial->owner = &owned;
    owned.denial->type = kTypeNsec;
    owned.denial->ttl = kHostTtl;
    owned.denial->is_unique = true;
  }
  owned.denial->rdata = denial_rdata(owned.name->name, types);
  owned.denial->is_live = true;
  return owned.denial.get();
}

void zone_restart(Link& link) {
  for (const auto& [key, entry] : link.names) {
    OwnedName* owned = entry->owned;
    if (owned == nullptr) {
      continue;
    }
    if (!owned->claimants.empty() && owned->state != NameState::unclaimed) {
      zone_name_doubted(link, *owned);
      prober_begin(link, *owned);
    }
    for (OwnedRecord* record : owned->records) {
      if (!record->is_unique && record->holders > 0) {
        announce(link, *record);
      }
    }
  }
}

void zone_free(Link& link) {
  for (const OwnedRecord* record : link.zone.records) {
    delete record;
  }
  for (const auto& [key, name] : link.names) {
    delete name->owned;
  }
}

PublicationId publish(Link& link, Time now, std::string_view name, std::span<const RecordData> records, Claim claim,
                      std::uint64_t tag) {
  link.now = now;
  OwnedName& owned = owned_get(link, name);
  const PublicationId id = ++link.last_id;
  if (claim == Claim::exclusive && contradicts(owned, records, nullptr)) {
    link.events.push_back({Event::Kind::conflict, id, tag, 0, 0, {}});
    owned_review(link, owned);
    return id;
  }
  auto made = std::make_unique<Publication>();
  Publication& publication = *made;
  publication.id = id;
  publication.tag = tag;
  publication.owner = &owned;
  publication.claim = claim;
  for (const RecordData& data : records) {
    publication.records.push_back(&record_hold(link, owned, data, claim != Claim::shared));
  }
  if (claim != Claim::shared) {
    owned.claimants.push_back(&publication);
  }
  link.zone.publications.emplace(id, std::move(made));
  start(link, publication);
  return id;
}

bool publication_update(Link& link, Time now, PublicationId id, const RecordData& data) {
  link.now = now;
  const auto found = link.zone.publications.find(id);
  if (found == link.zone.publications.end()) {
    return false;
  }
  Publication& publication = *found->second;
  const auto held = std::ranges::find(publication.records, data.type, [](const OwnedRecord* record) { return record->type; });
  if (held == publication.records.end()) {
    return false;
  }
  OwnedRecord& old = **held;
  if (same_rdata(data.type, old.rdata, data.rdata) && old.rdata == data.rdata) {
    return true;
  }
  if (publication.claim == Claim::exclusive && contradicts(*publication.owner, {&data, 1}, &publication)) {
    return false;
  }
  OwnedRecord& record = record_hold(link, *publication.owner, data, old.is_unique);
  if (&record == &old) {  // the same but for the case of a name in it
    --old.holders;
    return true;
  }
  *held = &record;
  supersede(link, record, old);
  return true;
}

void publication_withdraw(Link& link, Time now, PublicationId id) {
  link.now = now;
  publication_end(link, id, true);
}

void link_hold_goodbyes(Link& link, Time now, Time until) {
  link.now = now;
  link.goodbyes_at = std::max(link.goodbyes_at, until);
}

void publication_forsake(Link& link, Time now, PublicationId id) {
  link.now = now;
  publication_end(link, id, false);
}

void link_withdraw_all(Link& link, Time now) {
  link.now = now;
  link.goodbyes_at = kLongAgo;
  std::vector<PublicationId> ids;
  for (const auto& [id, publication] : link.zone.publications) {
    ids.push_back(id);
  }
  std::ranges::sort(ids);
  for (const PublicationId id : ids) {
    publication_end(link, id, true);
  }
  for (OwnedRecord* record : std::vector<OwnedRecord*>(link.announcer.goodbyes.items)) {
    announcer_say_goodbye(link, *record);
  }
  link.outbox.urgent.clear();
  link.is_closing = true;
}

}  // namespace mdns
