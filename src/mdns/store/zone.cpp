// SPDX-License-Identifier: MIT
#include "mdns/store/zone.h"

#include <algorithm>

#include "mdns/schedule/announcements.h"
#include "mdns/schedule/answers.h"
#include "mdns/schedule/probes.h"
#include "mdns/schedule/questions.h"
#include "mdns/state/lookup.h"
#include "mdns/store/cache.h"

namespace mdns {
namespace {

constexpr std::uint16_t kDeniableMax = 255;  // the greatest type in the single bit map of a restricted NSEC record

// Takes the record out of all tables and frees it, without a goodbye.
void record_free(Link& link, OwnedRecord& record) {
  announce_stop(link, record);
  answer_cancel(link, record, kBothProtocols);
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
      (with_goodbye ? goodbye_queue : record_free)(link, *other);
    }
  }
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
      announce_stop(link, other);
    }
  }
  return has_taken;
}

}  // namespace

OwnedName& owned_get(Link& link, std::string_view name) {
  NameEntry& entry = name_get(link, name);
  if (entry.owned == nullptr) {
    entry.owned = std::make_unique<OwnedName>();
    entry.owned->name = &entry;
  }
  return *entry.owned;
}

void owned_review(Link& link, OwnedName& owned) {
  if (!owned.claimants.empty()) {
    return;
  }
  const auto is_leaving = [](const OwnedRecord* record) { return record->is_unique && record->holders == 0; };
  if (owned.state != NameState::unclaimed && std::ranges::none_of(owned.records, is_leaving)) {
    probe_stop(link, owned);
  }
  if (owned.records.empty()) {
    NameEntry& entry = *owned.name;
    entry.owned.reset();
    name_release(link, entry);
  }
}

void set_live(Link& link, OwnedRecord& record, bool is_live) {
  record.is_live = is_live;
  const bool is_changed = std::exchange(record.is_reported, is_live) != is_live;
  RRset* rrset = rrset_find(*record.owner->name, record.type);
  if (rrset == nullptr || rrset->question == nullptr) {
    return;
  }
  if (is_changed && cache_find(link, key_of(record)) == nullptr) {
    if (is_live) {
      question_report(link, *rrset, {Event::Kind::added, 0, 0, record.type, record.ttl, record.rdata});
    } else {
      cache_keep_for_goodbye(link, *rrset, record.ttl, record.rdata);
    }
  }
  rrset_review(link, *rrset);
}

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
    announce_stop(link, *record);
    record->is_unique = is_unique;
    record->ttl = data.ttl != 0 ? data.ttl : usual_ttl(owner.name->name, data.type);
  }
  ++record->holders;
  return *record;
}

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
  const bool is_kept = record.without_goodbye ? is_recent : was_multicast(record);
  if (!is_kept) {
    record_free(link, record);
  } else {
    announce_stop(link, record);
    answer_cancel(link, record, kBothProtocols);
    record.holders = 0;
    set_live(link, record, false);
    goodbye_queue(link, record);
  }
  if (is_unique) {
    release_superseded(link, owned, type, with_goodbye);
  }
}

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

}  // namespace mdns
