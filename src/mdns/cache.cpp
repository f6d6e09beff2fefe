// SPDX-License-Identifier: MIT
#include "mdns/cache.h"

#include <algorithm>

#include "mdns/link.h"

namespace mdns {
namespace {

// RFC 6762 sections 10.1 and 10.2: a goodbye and a cache-flush leave one second.
constexpr Time kGoodbyeGrace = kSecond;

// How long the other protocol has to say goodbye as well before it is asked. By then whoever contradicts the goodbye has done
// so, which takes up to 120 ms and the pace of the packets: asked sooner, a flood of forged goodbyes would be answered by a
// flood of questions.
constexpr Time kOtherProtocolAfter = 300 * kMillisecond;

// No lifetime is longer: what is looked for is asked for again anyway, and the rest need not be kept.
constexpr std::uint32_t kTtlMax = kOtherTtl;

// RFC 6762 section 5.2: asked for again at 80, 85, 90 and 95 percent of the lifetime, each with up to 2 percent more.
constexpr int kRefreshes = 4;
constexpr Time kFirstRefreshPercent = 80;
constexpr Time kRefreshStepPercent = 5;
constexpr Time kRefreshJitterPercent = 2;

// RFC 6762 section 10.4: a record that is doubted is asked for twice at least, and gone after ten seconds.
constexpr Time kReconfirmedWithin = 10 * kSecond;
constexpr Time kReconfirmedAgain = 3 * kSecond;

// RFC 6762 section 10.5: what others asked for in vain is given up ten seconds after the last of these questions.
constexpr Time kGiveUpAfter = 10 * kSecond;
constexpr Time kVainWithin = 60 * kSecond;

// An RRset stays for the second in which its question may not be asked again.
constexpr Time kAskedFor = kSecond;

// The bounds: entries of a link, those among them that nobody asks for, and those of one name and type. A forwarder's limit
// of 2001 instances has up to six records each.
constexpr std::size_t kEntriesMax = 32768;
constexpr std::size_t kUnwantedMax = 16384;
constexpr std::uint32_t kRRsetMax = 8192;

// Types that are kept of one name: hosts have a handful.
constexpr std::size_t kTypesMax = 16;

// A source that was the first to say as many entries is one that makes room for others.
constexpr std::uint32_t kFairShare = 2048;
constexpr int kVictimsLookedAt = 64;

// A unique RRset has few records; of more than these, only a hostile one, the newest decide whether there is an answer.
constexpr int kAnswersLookedAt = 8;

void unwanted_remove(Cache& cache, CacheEntry& entry) {
  if (entry.newer == nullptr && entry.older == nullptr && cache.newest_unwanted != &entry) {
    return;
  }
  (entry.newer != nullptr ? entry.newer->older : cache.newest_unwanted) = entry.older;
  (entry.older != nullptr ? entry.older->newer : cache.oldest_unwanted) = entry.newer;
  entry.newer = entry.older = nullptr;
  --cache.unwanted;
}

// Puts the entry where its RRset's question, or the lack of one, wants it.
void unwanted_review(Cache& cache, CacheEntry& entry) {
  unwanted_remove(cache, entry);
  if (is_asked(*entry.rrset)) {
    return;
  }
  entry.older = cache.newest_unwanted;
  (entry.older != nullptr ? entry.older->newer : cache.oldest_unwanted) = &entry;
  cache.newest_unwanted = &entry;
  ++cache.unwanted;
}

// When the entry is to be looked at next.
void plan(Link& link, CacheEntry& entry) {
  Time at = entry.expires;
  if (entry.check_at != kNever) {
    at = std::min(at, entry.check_at);
  } else if (!entry.is_leaving && !entry.is_doubted && is_asked(*entry.rrset) && entry.refreshes < kRefreshes) {
    const Time percent = kFirstRefreshPercent + kRefreshStepPercent * entry.refreshes;
    const Time life = entry.expires - entry.received;
    at = entry.received + life * percent / 100 + random_between(link.random, 0, life * kRefreshJitterPercent / 100);
    at = std::min(std::max(at, link.now), entry.expires);
  }
  link.cache.due.set(entry, at);
}

void renew(Link& link, CacheEntry& entry, const Record& record, Protocols protocol, const Source& source) {
  OpenQuestion* question = entry.rrset->question;
  if (question != nullptr && entry.refreshes > 0 && entry.rrset->count == 1) {
    question_ask_no_more(link, *question);  // somebody else's question has been answered
  }
  entry.ttl = record.ttl;
  entry.received = link.now;
  entry.expires = link.now + std::min(record.ttl, kTtlMax) * kSecond;
  entry.check_at = kNever;
  entry.protocols |= protocol;
  entry.said_by[index_of(protocol)] = source.number;
  entry.goodbyes = kNoProtocol;
  entry.refreshes = 0;
  entry.is_unique = record.cache_flush;
  entry.is_leaving = false;
  entry.is_doubted = false;
  plan(link, entry);
  unwanted_review(link.cache, entry);
}

// Puts the entry at the end of its RRset, as the newest.
void link_entry(CacheEntry& entry) {
  RRset& rrset = *entry.rrset;
  entry.previous = rrset.last;
  entry.next = nullptr;
  (rrset.last != nullptr ? rrset.last->next : rrset.first) = &entry;
  rrset.last = &entry;
}

void unlink_entry(const CacheEntry& entry) {
  RRset& rrset = *entry.rrset;
  (entry.previous != nullptr ? entry.previous->next : rrset.first) = entry.next;
  (entry.next != nullptr ? entry.next->previous : rrset.last) = entry.previous;
}

RecordKey key_of(const CacheEntry& entry) { return {entry.rrset->name, entry.rrset->type, entry.rdata}; }

// Takes the entry out of everything and frees it; its RRset stays.
void remove_entry(Link& link, CacheEntry& entry) {
  RRset& rrset = *entry.rrset;
  link.cache.due.set(entry, kNever);
  unwanted_remove(link.cache, entry);
  link.cache.entries.erase(&entry);
  unlink_entry(entry);
  --rrset.count;
  source_drop_entry(link, *entry.source);
  const std::unique_ptr<CacheEntry> freed(&entry);
  if (rrset.question != nullptr && !zone_reports(link, key_of(entry))) {
    querier_report(link, rrset, Event::Kind::removed, entry.ttl, entry.rdata);
  }
}

// Removes the entry; its RRset goes with it if nothing else is left of it.
void drop(Link& link, CacheEntry& entry) {
  RRset& rrset = *entry.rrset;
  remove_entry(link, entry);
  if (rrset.question != nullptr) {
    question_review(link, *rrset.question);
  } else {
    rrset_release(link, rrset);
  }
}

// The newest entry of a source that has filled the RRset with its own; null when none of the newest is one.
CacheEntry* victim_in(Link& link, const RRset& rrset) {
  CacheEntry* entry = rrset.last;
  for (int looked_at = 0; entry != nullptr && looked_at < kVictimsLookedAt; ++looked_at, entry = entry->previous) {
    ++link.steps;
    if (entry->source->entries > kFairShare) {
      return entry;
    }
  }
  return nullptr;
}

// Makes room for an entry of the RRset that the source says; false when it has to do without.
bool make_room(Link& link, const RRset& rrset, const Source& source) {
  Cache& cache = link.cache;
  if (!is_asked(rrset)) {
    if (cache.unwanted >= kUnwantedMax || cache.entries.size() >= kEntriesMax) {
      if (cache.oldest_unwanted == nullptr || cache.oldest_unwanted->rrset == &rrset) {
        return false;
      }
      drop(link, *cache.oldest_unwanted);
    }
    return rrset.count < kRRsetMax;
  }
  if (rrset.count < kRRsetMax && cache.entries.size() < kEntriesMax) {
    return true;
  }
  if (cache.entries.size() >= kEntriesMax && cache.oldest_unwanted != nullptr) {
    drop(link, *cache.oldest_unwanted);
    return rrset.count < kRRsetMax;
  }
  CacheEntry* victim = source.entries > kFairShare ? nullptr : victim_in(link, rrset);
  if (victim == nullptr) {
    return false;
  }
  remove_entry(link, *victim);
  return true;
}

CacheEntry& entry_new(Link& link, RRset& rrset, std::string_view rdata, Source& source) {
  auto* entry = new CacheEntry;
  entry->rrset = &rrset;
  entry->rdata = rdata;
  entry->source = &source;
  link_entry(*entry);
  ++rrset.count;
  ++source.entries;
  link.cache.entries.insert(entry);
  return *entry;
}

void add_entry(Link& link, RRset& rrset, const Record& record, Protocols protocol, Source& source) {
  CacheEntry& entry = entry_new(link, rrset, record.rdata, source);
  renew(link, entry, record, protocol, source);
  if (rrset.question != nullptr) {
    if (!zone_reports(link, key_of(entry))) {
      querier_report(link, rrset, Event::Kind::added, entry.ttl, entry.rdata, entry.said_by);
    }
    question_review(link, *rrset.question);
  }
}

// A unique record has been said again: it is what its host has now.
void become_newest(Link& link, CacheEntry& entry) {
  const RRset& rrset = *entry.rrset;
  unlink_entry(entry);
  link_entry(entry);
  if (rrset.question != nullptr) {
    querier_report(link, rrset, Event::Kind::renewed, entry.ttl, entry.rdata, entry.said_by);
  }
}

void receive_goodbye(Link& link, CacheEntry& entry, Protocols protocol) {
  entry.goodbyes |= protocol;
  if (!entry.is_leaving) {
    entry.is_leaving = true;
    entry.expires = std::min(entry.expires, link.now + kGoodbyeGrace);
    entry.check_at = link.now + kOtherProtocolAfter;
  }
  if ((entry.protocols & ~entry.goodbyes) == kNoProtocol) {
    entry.check_at = kNever;
  }
  plan(link, entry);
}

// RFC 6762 section 10.2. What the flush leaves out is found when its second is over, in one walk however often it is said.
void receive_flush(Link& link, RRset& rrset) {
  if (rrset.count < 2 && (rrset.first == nullptr || rrset.first->received == link.now)) {
    return;  // the only record is the one that said it
  }
  rrset.flushed_again_at = link.now;
  if (rrset.flushed_at == kNever) {
    rrset.flushed_at = link.now;
  }
  const Time planned = rrset.review.at;
  link.cache.reviews.set(rrset, std::min(planned, rrset.flushed_at + kGoodbyeGrace));
}

// Removes what `is_over` says of the RRset's entries.
template <typename Condition>
void remove_if(Link& link, RRset& rrset, Condition is_over) {
  for (CacheEntry* entry = rrset.first; entry != nullptr;) {
    CacheEntry* const next = entry->next;
    ++link.steps;
    if (is_over(*entry)) {
      remove_entry(link, *entry);
    }
    entry = next;
  }
}

void finish_flush(Link& link, RRset& rrset) {
  const Time before = rrset.flushed_at - kGoodbyeGrace;
  remove_if(link, rrset, [before](const CacheEntry& entry) { return entry.received < before; });
  rrset.flushed_at = rrset.flushed_again_at > rrset.flushed_at ? rrset.flushed_again_at : kNever;
}

void give_up(Link& link, RRset& rrset) {
  const Time before = rrset.others_asked.front();
  const std::uint32_t before_count = rrset.count;
  remove_if(link, rrset, [before](const CacheEntry& entry) { return entry.received < before; });
  rrset.give_up_at = kNever;
  if (rrset.question != nullptr && rrset.count < before_count) {
    question_restart(link, *rrset.question);
  }
}

// When the RRset is to be looked at next, entries apart.
Time review_time(const RRset& rrset) {
  Time at = rrset.give_up_at;
  if (rrset.flushed_at != kNever) {
    at = std::min(at, rrset.flushed_at + kGoodbyeGrace);
  }
  if (rrset.count == 0 && rrset.question == nullptr) {
    at = std::min(at, std::max(rrset.asked_at[0], rrset.asked_at[1]) + kAskedFor);
  }
  return at;
}

void review(Link& link, RRset& rrset) {
  if (rrset.flushed_at != kNever && rrset.flushed_at + kGoodbyeGrace <= link.now) {
    finish_flush(link, rrset);
  }
  if (rrset.give_up_at <= link.now) {
    give_up(link, rrset);
  }
  link.cache.reviews.set(rrset, review_time(rrset));
  if (rrset.question != nullptr) {
    question_review(link, *rrset.question);
  } else {
    rrset_release(link, rrset);
  }
}

// The entry's deadline has come.
void look_at(Link& link, CacheEntry& entry) {
  ++link.steps;
  if (entry.expires <= link.now) {
    drop(link, entry);
    return;
  }
  OpenQuestion* question = entry.rrset->question;
  if (entry.check_at <= link.now) {
    entry.check_at = kNever;
    if (is_asked(*entry.rrset)) {
      question_ask_soon(link, *question, entry.protocols & ~entry.goodbyes);
    }
  } else if (is_asked(*entry.rrset)) {
    ++entry.refreshes;
    question_ask_soon(link, *question, entry.protocols);
  }
  plan(link, entry);
}

}  // namespace

std::size_t EntryHash::operator()(const RecordKey& key) const {
  return hash_folded(key.rdata, seed + (key.name->id << 16) + key.type);
}

std::size_t EntryHash::operator()(const CacheEntry* entry) const { return (*this)(key_of(*entry)); }

bool EntryEqual::operator()(const RecordKey& key, const CacheEntry* entry) const {
  return entry->rrset->name == key.name && entry->rrset->type == key.type && same_rdata(key.type, entry->rdata, key.rdata);
}

RRset* rrset_find(const NameEntry& name, std::uint16_t type) {
  for (RRset* rrset : name.rrsets) {
    if (rrset->type == type) {
      return rrset;
    }
  }
  return nullptr;
}

RRset& rrset_get(Link&, NameEntry& name, std::uint16_t type) {
  RRset* known = rrset_find(name, type);
  if (known != nullptr) {
    return *known;
  }
  auto* rrset = new RRset;
  rrset->name = &name;
  rrset->type = type;
  name.rrsets.push_back(rrset);
  return *rrset;
}

void rrset_release(Link& link, RRset& rrset) {
  if (rrset.count > 0 || rrset.question != nullptr) {
    return;
  }
  const Time free_at = std::max(rrset.asked_at[0], rrset.asked_at[1]) + kAskedFor;
  if (free_at > link.now) {
    link.cache.reviews.set(rrset, free_at);
    return;
  }
  NameEntry& name = *rrset.name;
  link.cache.reviews.set(rrset, kNever);
  std::erase(name.rrsets, &rrset);
  delete &rrset;
  name_release(link, name);
}

CacheEntry* cache_find(const Link& link, const RecordKey& key) {
  const auto found = link.cache.entries.find(key);
  return found == link.cache.entries.end() ? nullptr : *found;
}

void cache_keep_for_goodbye(Link& link, RRset& rrset, std::uint32_t ttl, std::string_view rdata) {
  CacheEntry& entry = entry_new(link, rrset, rdata, link.sources.overflow);
  entry.ttl = ttl;
  entry.received = link.now;
  entry.expires = link.now + kGoodbyeGrace;
  entry.protocols = link.protocols;
  entry.goodbyes = link.protocols;
  entry.is_leaving = true;
  plan(link, entry);
}

void cache_receive(Link& link, const Record& record, Protocols protocol, Source& source) {
  ++link.steps;
  const bool is_goodbye = record.ttl == 0;
  NameEntry* name = is_goodbye ? name_find(link, record.name) : &name_get(link, record.name);
  if (name == nullptr) {
    return;
  }
  CacheEntry* entry = cache_find(link, {name, record.type, record.rdata});
  if (is_goodbye) {
    if (entry != nullptr) {
      receive_goodbye(link, *entry, protocol);
    }
    return;
  }
  if (entry == nullptr && name->rrsets.size() >= kTypesMax && rrset_find(*name, record.type) == nullptr) {
    return;
  }
  RRset& rrset = rrset_get(link, *name, record.type);
  if (entry != nullptr) {
    renew(link, *entry, record, protocol, source);
    if (record.cache_flush) {
      become_newest(link, *entry);
    }
    if (rrset.question != nullptr) {
      question_review(link, *rrset.question);
    }
  } else if (make_room(link, rrset, source)) {
    add_entry(link, rrset, record, protocol, source);
  } else {
    rrset_release(link, rrset);
    return;
  }
  if (record.cache_flush) {
    receive_flush(link, rrset);
  }
}

void cache_others_asked(Link& link, RRset& rrset) {
  std::array<Time, kVainQuestions>& asked = rrset.others_asked;
  if (rrset.count == 0 || link.now - asked.back() < kSecond) {
    return;  // the same question over the other protocol, or one that came too soon to have been answered
  }
  std::rotate(asked.begin(), asked.begin() + 1, asked.end());
  asked.back() = link.now;
  if (link.now - asked.front() < kVainWithin && rrset.give_up_at == kNever) {
    rrset.give_up_at = link.now + kGiveUpAfter;
    link.cache.reviews.set(rrset, review_time(rrset));
  }
}

void cache_wanted_changed(Link& link, RRset& rrset) {
  for (CacheEntry* entry = rrset.first; entry != nullptr; entry = entry->next) {
    ++link.steps;
    unwanted_review(link.cache, *entry);
    plan(link, *entry);
  }
}

void link_reconfirm(Link& link, Time now, std::string_view name, std::uint16_t type, std::string_view rdata) {
  link.now = now;
  const NameEntry* known = name_find(link, name);
  CacheEntry* entry = known == nullptr ? nullptr : cache_find(link, {known, type, rdata});
  if (entry == nullptr || entry->is_leaving || entry->is_doubted) {
    return;
  }
  entry->is_doubted = true;
  entry->expires = std::min(entry->expires, now + kReconfirmedWithin);
  entry->check_at = now + kReconfirmedAgain;
  if (is_asked(*entry->rrset)) {
    question_ask_soon(link, *entry->rrset->question, entry->protocols);
  }
  plan(link, *entry);
}

bool cache_has_unique_answer(const RRset& rrset) {
  const CacheEntry* entry = rrset.last;
  for (int looked_at = 0; entry != nullptr && entry->is_unique && looked_at < kAnswersLookedAt; ++looked_at) {
    if (!entry->is_leaving) {
      return true;
    }
    entry = entry->previous;
  }
  return false;
}

void cache_keep_protocols(Link& link, Protocols protocols) {
  std::vector<CacheEntry*> gone;
  for (CacheEntry* entry : link.cache.entries) {
    entry->protocols &= protocols;
    if (entry->protocols == kNoProtocol) {
      gone.push_back(entry);
    }
  }
  for (CacheEntry* entry : gone) {
    drop(link, *entry);
  }
}

void cache_advance(Link& link) {
  Cache& cache = link.cache;
  while (cache.due.next() <= link.now) {
    look_at(link, *cache.due.first());
  }
  while (cache.reviews.next() <= link.now) {
    review(link, *cache.reviews.first());
  }
}

Time cache_deadline(const Link& link) { return std::min(link.cache.due.next(), link.cache.reviews.next()); }

void cache_free(Link& link) {
  std::vector<RRset*> rrsets;
  for (const auto& [key, name] : link.names) {
    rrsets.insert(rrsets.end(), name->rrsets.begin(), name->rrsets.end());
    name->rrsets.clear();
  }
  for (const CacheEntry* entry : link.cache.entries) {
    delete entry;
  }
  for (const RRset* rrset : rrsets) {
    delete rrset;
  }
}

}  // namespace mdns
