// SPDX-License-Identifier: MIT
#include "mdns/store/cache.h"

#include <algorithm>

#include "mdns/schedule/questions.h"
#include "mdns/schedule/sources.h"
#include "mdns/state/lookup.h"

namespace mdns {
namespace {

// RFC 6762 sections 10.1 and 10.2: records expire one second after a goodbye or a cache-flush bit.
constexpr Time kGoodbyeGrace = kSecond;

// How long after a goodbye over one protocol the record is asked for over the other one, unless the goodbye has come
// over that, too. A responder that corrects a forged goodbye has done so by then: it takes up to 120 ms and what the
// rate limit adds. A shorter time would turn a flood of forged goodbyes into a flood of questions.
constexpr Time kOtherProtocolAfter = 300 * kMillisecond;

// Upper bound of the TTL in the cache: records that a query asks for are refreshed anyway, others need not be kept.
constexpr std::uint32_t kTtlMax = kOtherTtl;

// RFC 6762 section 5.2: refreshes at 80, 85, 90 and 95 percent of the TTL, each with a random addition of up to 2
// percent.
constexpr int kRefreshes = 4;
constexpr Time kFirstRefreshPercent = 80;
constexpr Time kRefreshStepPercent = 5;
constexpr Time kRefreshJitterPercent = 2;

// RFC 6762 section 10.4: a record to be reconfirmed is asked for twice at least and expires after ten seconds.
constexpr Time kReconfirmedWithin = 10 * kSecond;
constexpr Time kReconfirmedAgain = 3 * kSecond;

// RFC 6762 section 10.5: a record is removed ten seconds after the last of kUnansweredQueries queries without an
// answer.
constexpr Time kGiveUpAfter = 10 * kSecond;
constexpr Time kUnansweredWithin = 60 * kSecond;

// The bounds: entries of a link, those among them that no query asks for, and those of one name and type. The daemon
// forwards at most 2001 instances with up to six records each.
constexpr std::size_t kEntriesMax = 32768;
constexpr std::size_t kOtherEntriesMax = 16384;
constexpr std::size_t kRRsetMax = 8192;

// The most types that are cached for one name: genuine hosts have a handful.
constexpr std::size_t kTypesMax = 16;

// When the cache is full, entries of a source that has more than this many make room for entries of other sources.
constexpr std::uint32_t kFairShare = 2048;
constexpr int kVictimsLookedAt = 64;

// The heap that the RRset's entries are in.
Heap<CacheEntry, &CacheEntry::due>& heap_of(Link& link, const RRset& rrset) {
  return is_asked(rrset) ? link.cache.asked : link.cache.other;
}

// Sets the entry's deadline: its next refresh or its end, and not later than `check_at`, the time at which a record
// that is about to expire early is asked for once more.
void plan(Link& link, CacheEntry& entry, Time check_at = kNever) {
  Time at = std::min(entry.expires, check_at);
  if (entry.limit == Limit::none && entry.refreshes < kRefreshes && is_asked(*entry.rrset)) {
    const Time percent = kFirstRefreshPercent + kRefreshStepPercent * entry.refreshes;
    const Time life = entry.expires - entry.received;
    at = entry.received + life * percent / 100 + random_between(link.random, 0, life * kRefreshJitterPercent / 100);
    at = std::min(std::max(at, link.now), entry.expires);
  }
  heap_of(link, *entry.rrset).set(entry, at);
}

void renew(Link& link, CacheEntry& entry, const Record& record, Protocols protocol, const Source& source) {
  OpenQuestion* question = entry.rrset->question.get();
  if (question != nullptr && entry.refreshes > 0 && entry.rrset->entries.size() == 1) {
    question->urgent = kNoProtocol;  // the record was the answer to a question of another host; ours is not needed
  }
  entry.ttl = record.ttl;
  entry.received = link.now;
  entry.expires = link.now + std::min(record.ttl, kTtlMax) * kSecond;
  entry.protocols |= protocol;
  entry.sent_by[index_of(protocol)] = source.number;
  entry.goodbyes = kNoProtocol;
  entry.refreshes = 0;
  entry.is_unique = record.cache_flush;
  entry.limit = Limit::none;
  plan(link, entry);
}

// Reports the entry to the queries of the RRset, unless the link publishes the same record itself: then the zone
// reports it.
void report_entry(Link& link, const CacheEntry& entry, Event::Kind kind) {
  if (entry.rrset->question != nullptr && (kind == Event::Kind::renewed || !zone_reports(link, key_of(entry)))) {
    question_report(link, *entry.rrset,
                    {kind, 0, 0, entry.rrset->type, entry.ttl, entry.rdata, entry.is_unique, entry.sent_by});
  }
}

// Reports the entry as removed, takes it out of all tables and frees it; its RRset stays.
void remove_entry(Link& link, CacheEntry& entry) {
  RRset& rrset = *entry.rrset;
  report_entry(link, entry, Event::Kind::removed);
  heap_of(link, rrset).set(entry, kNever);
  source_drop_entry(link, *entry.source);
  const auto node = link.cache.entries.extract(link.cache.entries.find(key_of(entry)));
  rrset.entries.erase(node.value());
}

// Removes the entry, and its RRset if that is no longer needed.
void drop_entry(Link& link, CacheEntry& entry) {
  RRset& rrset = *entry.rrset;
  remove_entry(link, entry);
  rrset_review(link, rrset);
}

// The entry of the RRset to remove in favour of another source: the newest one of a source with more than kFairShare
// entries; null when there is none among the newest kVictimsLookedAt.
CacheEntry* victim_in(Link& link, RRset& rrset) {
  auto entry = rrset.entries.rbegin();
  for (int looked_at = 0; entry != rrset.entries.rend() && looked_at < kVictimsLookedAt; ++looked_at, ++entry) {
    ++link.steps;
    if (entry->source->entries > kFairShare) {
      return &*entry;
    }
  }
  return nullptr;
}

// The entry to remove among those that no query asks for; null when there is none. It is the one that expires first or
// one at random, whichever was received longer ago, so that many entries with long TTLs do not keep out all others.
CacheEntry* victim_among_others(Link& link) {
  const Heap<CacheEntry, &CacheEntry::due>& other = link.cache.other;
  if (other.items.empty()) {
    return nullptr;
  }
  const Time place = random_between(link.random, 0, static_cast<Time>(other.items.size()) - 1);
  CacheEntry* any = other.items[static_cast<std::size_t>(place)];
  return any->received < other.first()->received ? any : other.first();
}

// Makes room for a new entry of the RRset from the source; false when the new record is not to be cached.
bool make_room(Link& link, RRset& rrset, const Source& source) {
  const Cache& cache = link.cache;
  const bool is_wanted = is_asked(rrset);
  const bool is_full = rrset.entries.size() >= kRRsetMax;
  if (!is_full && cache.entries.size() < kEntriesMax && (is_wanted || cache.other.items.size() < kOtherEntriesMax)) {
    return true;
  }
  CacheEntry* victim = is_full ? nullptr : victim_among_others(link);
  if (victim == nullptr && is_wanted && source.entries <= kFairShare) {
    victim = victim_in(link, rrset);
  }
  if (victim == nullptr || (!is_wanted && victim->rrset == &rrset)) {
    return false;
  }
  drop_entry(link, *victim);
  return true;
}

CacheEntry& entry_new(Link& link, RRset& rrset, std::string_view rdata, Source& source) {
  const auto place = rrset.entries.emplace(rrset.entries.end());
  place->rrset = &rrset;
  place->rdata = rdata;
  place->source = &source;
  ++source.entries;
  link.cache.entries.insert(place);
  return *place;
}

// Makes the entry, a unique record that was received again, the newest of its RRset: it is the host's present data.
void become_newest(Link& link, CacheEntry& entry) {
  std::list<CacheEntry>& entries = entry.rrset->entries;
  if (&entries.back() != &entry) {
    entries.splice(entries.end(), entries, *link.cache.entries.find(key_of(entry)));
  }
  report_entry(link, entry, Event::Kind::renewed);
}

void receive_goodbye(Link& link, CacheEntry& entry, Protocols protocol) {
  Time check_at = entry.due.at;
  entry.goodbyes |= protocol;
  if (entry.limit != Limit::goodbye) {
    entry.limit = Limit::goodbye;
    entry.expires = std::min(entry.expires, link.now + kGoodbyeGrace);
    check_at = link.now + kOtherProtocolAfter;
  }
  plan(link, entry, (entry.protocols & ~entry.goodbyes) != kNoProtocol ? check_at : kNever);
}

Watch& watch_get(RRset& rrset) {
  if (rrset.watch == nullptr) {
    rrset.watch = std::make_unique<Watch>();
    rrset.watch->rrset = &rrset;
  }
  return *rrset.watch;
}

// Sets the watch's deadline, or frees the watch when it has nothing left to do.
void watch_plan(Link& link, Watch& watch) {
  Time at = std::min(watch.flush_ends, watch.give_up_at);
  const Time unanswered_until = watch.others_asked.back() + kUnansweredWithin;
  if (at == kNever && unanswered_until > link.now) {
    at = unanswered_until;
  }
  link.cache.watches.set(watch, at);
  if (at == kNever) {
    watch.rrset->watch.reset();
  }
}

// RFC 6762 section 10.2. The records that the response leaves out are found when the second is over, in one walk over
// the RRset for all cache-flush bits that were received in that second.
void receive_flush(Link& link, RRset& rrset) {
  if (rrset.entries.size() < 2) {
    return;  // the only entry is the record that has the bit
  }
  Watch& watch = watch_get(rrset);
  watch.last_flush_ends = link.now + kGoodbyeGrace;
  watch.flush_ends = std::min(watch.flush_ends, watch.last_flush_ends);
  watch_plan(link, watch);
}

// Removes the entries that were received last before that time; false when there was none.
bool remove_before(Link& link, RRset& rrset, Time before) {
  const std::size_t count = rrset.entries.size();
  for (auto next = rrset.entries.begin(); next != rrset.entries.end();) {
    CacheEntry& entry = *next++;
    ++link.steps;
    if (entry.received < before) {
      remove_entry(link, entry);
    }
  }
  return rrset.entries.size() < count;
}

// Does what the watch's deadline is for.
void review_watch(Link& link, Watch& watch) {
  RRset& rrset = *watch.rrset;
  if (watch.flush_ends <= link.now) {
    remove_before(link, rrset, watch.flush_ends - 2 * kGoodbyeGrace);
    watch.flush_ends = watch.last_flush_ends > watch.flush_ends ? watch.last_flush_ends : kNever;
  }
  if (watch.give_up_at <= link.now) {
    watch.give_up_at = kNever;
    if (remove_before(link, rrset, watch.others_asked.front()) && rrset.question != nullptr) {
      question_restart(link, *rrset.question);
    }
  }
  watch_plan(link, watch);
  rrset_review(link, rrset);
}

// Does what the entry's deadline is for: removes it when it has expired, else asks for it.
void review_entry(Link& link, CacheEntry& entry) {
  ++link.steps;
  if (entry.expires <= link.now) {
    drop_entry(link, entry);
    return;
  }
  if (entry.limit == Limit::none) {
    ++entry.refreshes;  // the deadline was a refresh
  }
  rrset_ask_soon(link, *entry.rrset, entry.protocols & ~entry.goodbyes);
  plan(link, entry);
}

}  // namespace

void cache_keep_for_goodbye(Link& link, RRset& rrset, std::uint32_t ttl, std::string_view rdata) {
  if (rrset.question->queries.empty()) {
    return;
  }
  CacheEntry& entry = entry_new(link, rrset, rdata, link.sources.overflow);
  entry.ttl = ttl;
  entry.received = link.now;
  entry.expires = kNever;
  entry.protocols = link.protocols;
  receive_goodbye(link, entry, link.protocols);
}

void cache_receive(Link& link, const Record& record, Protocols protocol, Source& source) {
  ++link.steps;
  if (record.ttl == 0) {
    if (CacheEntry* known = cache_find(link, {name_find(link, record.name), record.type, record.rdata})) {
      receive_goodbye(link, *known, protocol);
    }
    return;
  }
  NameEntry& name = name_get(link, record.name);
  if (name.rrsets.size() >= kTypesMax && rrset_find(name, record.type) == nullptr) {
    return;
  }
  RRset& rrset = rrset_get(name, record.type);
  CacheEntry* entry = cache_find(link, {&name, record.type, record.rdata});
  if (entry != nullptr) {
    renew(link, *entry, record, protocol, source);
    if (record.cache_flush) {
      become_newest(link, *entry);
    }
  } else if (make_room(link, rrset, source)) {
    entry = &entry_new(link, rrset, record.rdata, source);
    renew(link, *entry, record, protocol, source);
    report_entry(link, *entry, Event::Kind::added);
  }
  rrset_review(link, rrset);
  if (entry != nullptr && record.cache_flush) {
    receive_flush(link, rrset);
  }
}

void cache_others_asked(Link& link, RRset& rrset) {
  if (rrset.entries.empty()) {
    return;
  }
  Watch& watch = watch_get(rrset);
  std::array<Time, kUnansweredQueries>& asked = watch.others_asked;
  if (link.now - asked.back() < kSecond) {
    return;  // the same query over the other protocol, or one too soon after the last to have been answered
  }
  std::rotate(asked.begin(), asked.begin() + 1, asked.end());
  asked.back() = link.now;
  if (link.now - asked.front() < kUnansweredWithin) {
    watch.give_up_at = std::min(watch.give_up_at, link.now + kGiveUpAfter);
  }
  watch_plan(link, watch);
}

void cache_wanted_changed(Link& link, RRset& rrset) {
  Heap<CacheEntry, &CacheEntry::due>& former = is_asked(rrset) ? link.cache.other : link.cache.asked;
  for (CacheEntry& entry : rrset.entries) {
    ++link.steps;
    const Time check_at = entry.limit == Limit::none ? kNever : entry.due.at;
    former.set(entry, kNever);
    plan(link, entry, check_at);
  }
}

void link_reconfirm(Link& link, Time now, std::string_view name, std::uint16_t type, std::string_view rdata) {
  link.now = now;
  CacheEntry* entry = cache_find(link, {name_find(link, name), type, rdata});
  if (entry == nullptr || entry->limit != Limit::none) {
    return;
  }
  entry->limit = Limit::reconfirm;
  entry->expires = std::min(entry->expires, now + kReconfirmedWithin);
  rrset_ask_soon(link, *entry->rrset, entry->protocols);
  plan(link, *entry, now + kReconfirmedAgain);
}

void cache_keep_protocols(Link& link, Protocols protocols) {
  for (auto next = link.cache.entries.begin(); next != link.cache.entries.end();) {
    CacheEntry& entry = **next++;
    entry.protocols &= protocols;
    if (entry.protocols == kNoProtocol) {
      drop_entry(link, entry);
    }
  }
}

void cache_advance(Link& link) {
  Cache& cache = link.cache;
  for (Heap<CacheEntry, &CacheEntry::due>* entries : {&cache.asked, &cache.other}) {
    while (CacheEntry* entry = entries->due(link.now)) {
      review_entry(link, *entry);
    }
  }
  while (Watch* watch = cache.watches.due(link.now)) {
    review_watch(link, *watch);
  }
}

}  // namespace mdns
