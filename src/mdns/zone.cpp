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
    entry.owned = std::make_unique<OwnedName>();
    entry.owned->name = &entry;
  }
  return *entry.owned;
}

// Nobody may claim the name any more, or it may be over altogether. Until the goodbyes of its unique records it is kept.
void owned_review(Link& link, OwnedName& owned) {
  if (!owned.claimants.empty()) {
    return;
  }
  const auto is_leaving = [](const OwnedRecord* record) { return record->is_unique && record->holders == 0; };
  if (owned.state != NameState::unclaimed && std::ranges::none_of(owned.records, is_leaving)) {
    prober_stop(link, owned);
  }
  if (owned.records.empty()) {
    NameEntry& entry = *owned.name;
    entry.owned.reset();
    name_release(link, entry);
  }
}

// Makes the record live, or not: the link's own queries are told, unless another host says the same. Of what is gone they will be
// told when the second of its goodbye is over.
void set_live(Link& link, OwnedRecord& record, bool is_live) {
  record.is_live = is_live;
  const bool is_news = std::exchange(record.is_reported, is_live) != is_live;
  RRset* rrset = rrset_find(*record.owner->name, record.type);
  if (rrset == nullptr || rrset->question == nullptr) {
    return;
  }
  if (is_news && cache_find(link, key_of(record)) == nullptr) {
    if (is_live) {
      querier_report(link, *rrset, {Event::Kind::added, 0, 0, record.type, record.ttl, record.rdata});
    } else {
      cache_keep_for_goodbye(link, *rrset, record.ttl, record.rdata);
    }
  }
  rrset_review(link, *rrset);
}

// Takes the record out of everything and frees it, without a goodbye.
void record_free(Link& link, OwnedRecord& record) {
  announcer_stop(link, record);
  responder_stop(link, record);
  const auto freed = link.zone.records.extract(link.zone.records.find(key_of(record)));
  std::vector<OwnedRecord*>& records = record.owner->records;
  records[record.place] = records.back();
  records[record.place]->place = record.place;
  records.pop_back();
  set_live(link, record, false);
}

// Other unique data of the record's type whose place it has taken: neither held nor about to get a goodbye.
bool is_superseded(const OwnedRecord& record) {
  return record.is_unique && record.holders == 0 && record.announcement.at == kNever;
}

// The last holder of the record's type has left: what it had superseded is withdrawn with it.
void release_superseded(Link& link, OwnedName& owned, std::uint16_t type, bool says_goodbye) {
  const auto is_held = [type](const OwnedRecord* other) { return other->type == type && other->is_unique && other->holders > 0; };
  if (std::ranges::any_of(owned.records, is_held)) {
    return;
  }
  for (OwnedRecord* other : std::vector<OwnedRecord*>(owned.records)) {
    if (other->type == type && is_superseded(*other)) {
      (says_goodbye ? announcer_say_goodbye : record_free)(link, *other);
    }
  }
}

// One holder leaves; the last one's leaving withdraws the record.
void record_unhold(Link& link, OwnedRecord& record, bool says_goodbye) {
  if (record.holders > 1) {
    --record.holders;
    return;
  }
  OwnedName& owned = *record.owner;
  const std::uint16_t type = record.type;
  const bool is_unique = record.is_unique;
  // What is forsaken is only remembered until it may be said again (RFC 6762 section 6), if it should come back.
  record.is_forsaken = record.is_forsaken || !says_goodbye;
  const bool is_recent = !is_unique && latest_multicast(record, kBothProtocols) + kSecond > link.now;
  if (record.is_forsaken ? !is_recent : !was_multicast(record)) {
    record_free(link, record);
  } else {
    announcer_stop(link, record);
    responder_stop(link, record);
    record.holders = 0;
    set_live(link, record, false);
    announcer_say_goodbye(link, record);
  }
  if (is_unique) {
    release_superseded(link, owned, type, says_goodbye);
  }
}

// The record with that data, held once more; made if nobody publishes it yet. One that is about to get its goodbye is as good
// as new, but everybody knows it.
OwnedRecord& record_hold(Link& link, OwnedName& owner, const RecordData& data, bool is_unique) {
  OwnedRecord* record = zone_find(link, {owner.name, data.type, data.rdata});
  if (record == nullptr) {
    auto made = std::make_unique<OwnedRecord>();
    record = owner.records.emplace_back(made.get());
    record->owner = &owner;
    record->place = static_cast<std::uint32_t>(owner.records.size() - 1);
    record->type = data.type;
    record->rdata = data.rdata;
    link.zone.records.insert(std::move(made));
  }
  if (record->holders == 0) {
    announcer_stop(link, *record);
    record->is_unique = is_unique;
    record->ttl = data.ttl != 0 ? data.ttl : usual_ttl(owner.name->name, data.type);
  }
  ++record->holders;
  return *record;
}

// Whether an exclusive publication of the data would contradict another one of this link, but for this one and what has `old`.
bool contradicts(const OwnedName& owned, const RecordData& data, const Publication* but, const OwnedRecord* old) {
  const auto differs = [&](const OwnedRecord* record) {
    return record != old && record->type == data.type && !same_rdata(data.type, record->rdata, data.rdata);
  };
  return std::ranges::any_of(owned.claimants, [&](const Publication* other) {
    return other != but && other->claim == Claim::exclusive && std::ranges::any_of(other->records, differs);
  });
}

void establish(Link& link, Publication& publication) {
  publication.is_established = true;
  link.events.push_back({Event::Kind::established, publication.id, publication.tag, 0, 0, {}});
}

// The record takes the place of unique data of its type that was about to get a goodbye. Whether any of that was said later than the
// record itself, which may have been away for a moment only.
bool take_place(Link& link, const OwnedRecord& record) {
  bool has_taken = false;
  for (std::size_t i = 0; record.is_unique && i < record.owner->records.size(); ++i) {
    OwnedRecord& other = *record.owner->records[i];
    if (share_rrset(record, other) && other.holders == 0) {
      const bool is_later = latest_multicast(other, kBothProtocols) > latest_multicast(record, kBothProtocols);
      has_taken = has_taken || (is_later && !is_superseded(other));
      announcer_stop(link, other);
    }
  }
  return has_taken;
}

// Whether the record is published only while the name is ours.
bool is_claimed(const OwnedRecord& record) { return record.holders > 0 && (record.is_unique || yields(*record.owner)); }

// The record is announced, unless it has never been away and has been announced as often as is due.
void go_live(Link& link, OwnedRecord& record) {
  set_live(link, record, true);
  if (take_place(link, record)) {
    announce_change(link, record, kNever);
  } else if (!was_multicast(record) || std::exchange(record.is_forsaken, false)) {
    announce(link, record);
  } else {
    announce_rest(link, record);
  }
}

// Whether the name was ours already, or needs no claim.
void start(Link& link, Publication& publication) {
  OwnedName& owned = *publication.owner;
  const bool is_claimed = publication.claim != Claim::shared &&
                          (publication.records.empty() || !std::ranges::all_of(publication.records, &OwnedRecord::is_live));
  const bool proposes_more = owned.state == NameState::probing && !yields(owned);
  if (is_claimed && (owned.state == NameState::unclaimed || proposes_more)) {
    prober_begin(link, owned);
  }
  if (is_claimed && owned.state != NameState::owned) {
    return;
  }
  if (is_claimed && yields(owned) && owned.rival_at + kSecond > link.now) {
    zone_name_lost(link, owned);  // whoever probes would take a further address for an owner's
    return;
  }
  for (OwnedRecord* record : publication.records) {
    if (!record->is_live) {
      go_live(link, *record);
    }
  }
  establish(link, publication);
}

// The publication has the data in place of `old`. Old data that is unique is flushed by the new data's announcement; a shared
// one's goodbye goes in the same packet (RFC 6762 section 8.4).
void replace(Link& link, Publication& publication, OwnedRecord& old, const RecordData& data) {
  OwnedRecord& record = record_hold(link, *publication.owner, data, old.is_unique);
  if (&record == &old) {  // the same but for the case of a name in it
    --old.holders;
    return;
  }
  *std::ranges::find(publication.records, &old) = &record;  // once, as it was held once: the publication may have it twice
  const bool is_leaving = old.holders == 1 && was_multicast(old) && !old.is_forsaken;
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

OwnedRecord* zone_find(const Link& link, const RecordKey& key) {
  const auto found = link.zone.records.find(key);
  return found == link.zone.records.end() ? nullptr : found->get();
}

void zone_forget(Link& link, OwnedRecord& record) {
  OwnedName& owned = *record.owner;
  record_free(link, record);
  owned_review(link, owned);
}

void zone_forget_superseded(Link& link, const OwnedRecord& record, Time last_said) {
  std::vector<OwnedRecord*>& records = record.owner->records;
  for (std::size_t i = record.is_unique ? records.size() : 0; i-- > 0;) {
    OwnedRecord& other = *records[i];
    if (share_rrset(record, other) && is_superseded(other) && latest_multicast(other, kBothProtocols) <= last_said) {
      record_free(link, other);
    }
  }
}

Time latest_multicast(const OwnedRecord& record, Protocols protocols) {
  return std::max(protocols & kIpv4 ? record.multicast_at[0] : kLongAgo, protocols & kIpv6 ? record.multicast_at[1] : kLongAgo);
}

Time rrset_multicast_at(const OwnedRecord& record, Protocols protocols, Time before) {
  Time last = latest_multicast(record, protocols);
  if (record.is_unique && record.type != kTypeNsec) {
    for (const OwnedRecord* other : record.owner->records) {
      const Time at = latest_multicast(*other, protocols);
      if (share_rrset(record, *other) && other->holders > 0 && at < before) {
        last = std::max(last, at);
      }
    }
  }
  return last;
}

bool was_multicast_since(const OwnedRecord& record, Protocols protocols, Time time) {
  return std::ranges::all_of(kEachProtocol, [&](Protocols protocol) {
    return (protocols & protocol) == 0 || record.multicast_at[index_of(protocol)] > time;
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
    if (is_claimed(*record)) {
      record->is_forsaken = false;
      set_live(link, *record, true);
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
    if (is_claimed(*record)) {
      record->is_live = false;
      announcer_stop(link, *record);
      responder_stop(link, *record);
    }
  }
  prober_begin(link, owned);
}

void zone_name_lost(Link& link, OwnedName& owned) {
  ++link.conflicts;
  prober_stop(link, owned);
  for (const Publication* loser : std::vector<Publication*>(owned.claimants)) {
    const Event conflict{Event::Kind::conflict, loser->id, loser->tag, 0, 0, {}};
    publication_withdraw(link, link.now, loser->id, false);
    link.events.push_back(conflict);
  }
}

OwnedRecord* zone_denial(OwnedName& owned) {
  if (!is_ours(owned)) {
    return nullptr;
  }
  std::vector<std::uint16_t> types;
  types.reserve(owned.records.size());
  for (const OwnedRecord* record : owned.records) {
    if (record->holders > 0 && record->type > kDeniableMax) {
      return nullptr;
    }
    if (record->holders > 0) {
      types.push_back(record->type);
    }
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
    OwnedName* owned = entry->owned.get();
    if (owned == nullptr) {
      continue;
    }
    if (!owned->claimants.empty() && owned->state != NameState::unclaimed) {
      zone_name_doubted(link, *owned);
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
  const auto is_taken = [&owned](const RecordData& data) { return contradicts(owned, data, nullptr, nullptr); };
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
  start(link, publication);
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
  if (publication.claim == Claim::exclusive && contradicts(owned, data, &publication, for_all ? &old : nullptr)) {
    return false;
  }
  for (Publication* other : owned.claimants) {
    if (for_all && other != &publication && std::ranges::find(other->records, &old) != other->records.end()) {
      replace(link, *other, old, data);
    }
  }
  replace(link, publication, old, data);
  return true;
}

void publication_withdraw(Link& link, Time now, PublicationId id, bool says_goodbye) {
  link.now = now;
  const auto node = link.zone.publications.extract(id);
  if (node.empty()) {
    return;
  }
  const Publication& publication = node.mapped();
  std::erase(publication.owner->claimants, &publication);
  for (OwnedRecord* record : publication.records) {
    record_unhold(link, *record, says_goodbye);
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
    announcer_say_goodbye(link, *record);
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
