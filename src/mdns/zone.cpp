// SPDX-License-Identifier: MIT
#include "mdns/zone.h"

#include <algorithm>

#include "mdns/link.h"

namespace mdns {
namespace {

constexpr std::uint16_t kDeniableMax = 255;  // the greatest type in the single bit map of a restricted NSEC record

OwnedName& owned_get(Link& link, std::string_view name) {
  NameEntry& entry = name_get(link, name);
  if (entry.owned == nullptr) {
    entry.owned = std::make_unique<OwnedName>();
    entry.owned->name = &entry;
  }
  return *entry.owned;
}

// To be called when a publication or record of the name has gone. Without publications that claim it, its probing stops
// or it becomes unclaimed once the goodbyes of its unique records are sent; without records it is freed.
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

// Sets whether the record is live, and reports a change to the link's own queries unless the cache has the same record
// of another host. The removal of a record is reported when the second after its goodbye is over.
void set_live(Link& link, OwnedRecord& record, bool is_live) {
  record.is_live = is_live;
  const bool is_changed = std::exchange(record.is_reported, is_live) != is_live;
  RRset* rrset = rrset_find(*record.owner->name, record.type);
  if (rrset == nullptr || rrset->question == nullptr) {
    return;
  }
  if (is_changed && cache_find(link, key_of(record)) == nullptr) {
    if (is_live) {
      querier_report(link, *rrset, {Event::Kind::added, 0, 0, record.type, record.ttl, record.rdata});
    } else {
      cache_keep_for_goodbye(link, *rrset, record.ttl, record.rdata);
    }
  }
  rrset_review(link, *rrset);
}

// Takes the record out of all tables and frees it, without a goodbye.
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

// Whether the record is unique, has no holder and is to get no goodbye: the announcement of other data of its type,
// which has replaced it, removes it from caches.
bool is_superseded(const OwnedRecord& record) {
  return record.is_unique && record.holders == 0 && record.announcement.at == kNever;
}

// If no record of that type has a holder any more, withdraws the superseded records of the type, with goodbyes or
// without.
void release_superseded(Link& link, OwnedName& owned, std::uint16_t type, bool with_goodbye) {
  const auto is_held = [type](const OwnedRecord* other) {
    return other->type == type && other->is_unique && other->holders > 0;
  };
  if (std::ranges::any_of(owned.records, is_held)) {
    return;
  }
  for (OwnedRecord* other : std::vector<OwnedRecord*>(owned.records)) {
    if (other->type == type && is_superseded(*other)) {
      (with_goodbye ? announcer_queue_goodbye : record_free)(link, *other);
    }
  }
}

// Removes one holder of the record; without any, the record is withdrawn.
void record_unhold(Link& link, OwnedRecord& record, bool with_goodbye) {
  if (record.holders > 1) {
    --record.holders;
    return;
  }
  OwnedName& owned = *record.owner;
  const std::uint16_t type = record.type;
  const bool is_unique = record.is_unique;
  // A record that gets no goodbye is kept until it may be multicast again (RFC 6762 section 6), in case that it is
  // published again.
  record.without_goodbye = record.without_goodbye || !with_goodbye;
  const bool is_recent = !is_unique && latest_multicast(record, kBothProtocols) + kSecond > link.now;
  if (record.without_goodbye ? !is_recent : !was_multicast(record)) {
    record_free(link, record);
  } else {
    announcer_stop(link, record);
    responder_stop(link, record);
    record.holders = 0;
    set_live(link, record, false);
    announcer_queue_goodbye(link, record);
  }
  if (is_unique) {
    release_superseded(link, owned, type, with_goodbye);
  }
}

// Adds a holder to the record with that data, which is made if need be. A record that waits for its goodbye is treated
// like a new one, except that other hosts have it in their caches.
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

// Cancels the goodbyes of the other unique records of its RRset that have no holder: the record replaces them. Returns
// whether any of them was multicast later than the record itself, so that caches have that one in its place.
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

// Whether the record is live only while the claim of its name is established.
bool is_claimed(const OwnedRecord& record) { return record.holders > 0 && (record.is_unique || yields(*record.owner)); }

// Makes the record live and announces it, or sends only those announcements that were left when it was withdrawn.
void go_live(Link& link, OwnedRecord& record) {
  set_live(link, record, true);
  if (take_place(link, record)) {
    announce_change(link, record, kNever);
  } else if (!was_multicast(record) || std::exchange(record.without_goodbye, false)) {
    announce(link, record);
  } else {
    announce_remaining(link, record);
  }
}

// Starts a new publication: probes for its name if need be, or else makes its records live at once and reports it as
// established.
void start_publication(Link& link, Publication& publication) {
  OwnedName& owned = *publication.owner;
  const bool is_claimed =
      publication.claim != Claim::shared &&
      (publication.records.empty() || !std::ranges::all_of(publication.records, &OwnedRecord::is_live));
  const bool proposes_more = owned.state == NameState::probing && !yields(owned);
  if (is_claimed && (owned.state == NameState::unclaimed || proposes_more)) {
    prober_begin(link, owned);
  }
  if (is_claimed && owned.state != NameState::owned) {
    return;
  }
  if (is_claimed && yields(owned) && owned.probed_by_other_at + kSecond > link.now) {
    zone_name_lost(link, owned);  // the other host's probes would conflict with a further address
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
  return std::max(protocols & kIpv4 ? record.multicast_at[0] : kLongAgo,
                  protocols & kIpv6 ? record.multicast_at[1] : kLongAgo);
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

void zone_name_reprobe(Link& link, OwnedName& owned) {
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
      zone_name_reprobe(link, *owned);
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
    announcer_queue_goodbye(link, *record);
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
