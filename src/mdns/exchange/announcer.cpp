// SPDX-License-Identifier: MIT
#include "mdns/exchange/announcer.h"

#include <algorithm>

#include "mdns/schedule/announcements.h"
#include "mdns/schedule/answers.h"
#include "mdns/store/zone.h"

namespace mdns {
namespace {

// Changed data is announced at once; if it changes again and again, at intervals that double up to a second.
constexpr Time kFirstChangeInterval = 20 * kMillisecond;
constexpr Time kLongestChangeInterval = kSecond;
constexpr Time kChangesForgotten = 2 * kSecond;

// Has the other records of a unique RRset announced in the same packet or the next one (RFC 6762 section 10.2).
void hurry_rrset(Link& link, const OwnedRecord& record) {
  if (!record.is_unique) {
    return;
  }
  for (OwnedRecord* other : record.owner->records) {
    ++link.steps;
    const bool is_rest = other != &record && share_rrset(record, *other) && other->is_live;
    if (is_rest && other->announcement.at > link.now &&
        !was_multicast_since(*other, link.protocols, link.now - kFlushSpares)) {
      other->announcements_left = std::max<std::uint8_t>(other->announcements_left, 1);
      link.announcer.due.set(*other, link.now);
    }
  }
}

// Sets the earliest time at which the next change of the name's records is announced.
void note_change(const Link& link, const OwnedRecord& record) {
  OwnedName& owned = *record.owner;
  const bool is_calm = owned.change_at < link.now - kChangesForgotten;
  owned.change_interval = is_calm ? kFirstChangeInterval : std::min(2 * owned.change_interval, kLongestChangeInterval);
  owned.change_at = link.now + owned.change_interval;
}

void note_announced(Link& link, OwnedRecord& record) {
  ++link.steps;
  if (record.is_change && record.announcements_left == kAnnouncements) {
    note_change(link, record);
  }
  // Superseded records that were sent within the last second stay in caches in spite of this cache-flush bit; that of
  // the next announcement removes them (RFC 6762 section 10.2).
  zone_forget_superseded(link, record, link.now - kAnnouncementsApart);
  record_was_multicast(link, record, link.protocols, link.now);
  if (record.announcement.at <= link.now) {
    const bool is_last = --record.announcements_left == 0;
    record.is_change = record.is_change && !is_last;
    link.announcer.due.set(record, is_last ? kNever : link.now + kAnnouncementsApart);
  }
}

bool write_answer(Writer& writer, const OwnedRecord& record, std::uint32_t ttl, bool cache_flush) {
  return writer_add_record(writer, Section::answers, name_of(record), record.type, ttl, cache_flush, record.rdata);
}

// Whether the record is not to be announced now, because RFC 6762 section 6 allows a record to be multicast once a
// second only. If it was just sent as an answer over all protocols, that counts as this announcement; else the
// announcement is put off. Changed data is always announced twice: the cache-flush bit of its first announcement does
// not remove old data that was sent within the last second. For a unique record the rest of its RRset counts as well,
// but not what was sent within kFlushSpares, and not for the first announcement of changed data.
bool put_off_if_just_sent(Link& link, OwnedRecord& record) {
  const bool is_new = record.is_change && record.announcements_left == kAnnouncements;
  const Time last = rrset_multicast_at(record, link.protocols, is_new ? kLongAgo : link.now - kFlushSpares);
  if (last + kSecond <= link.now) {
    return false;
  }
  const bool is_announced = was_multicast_since(record, link.protocols, link.now - kSecond) && !record.is_change;
  const bool is_over = is_announced && --record.announcements_left == 0;
  link.announcer.due.set(record, is_over ? kNever : last + kAnnouncementsApart);
  return true;
}

// Both write what is due until the packet is full; write_goodbyes returns false then. A record that is too long for any
// packet is not sent.
bool write_goodbyes(Link& link, Writer& writer) {
  while (OwnedRecord* record = link.announcer.goodbyes.due(link.now)) {
    ++link.steps;
    if (!record->without_goodbye && !write_answer(writer, *record, 0, false) && !writer_is_empty(writer)) {
      return false;
    }
    zone_forget(link, *record);
  }
  return true;
}

void write_announcements(Link& link, Writer& writer) {
  while (OwnedRecord* record = link.announcer.due.due(link.now)) {
    if (put_off_if_just_sent(link, *record)) {
      continue;
    }
    hurry_rrset(link, *record);
    if (write_answer(writer, *record, record->ttl, record->is_unique)) {
      note_announced(link, *record);
    } else if (!writer_is_empty(writer)) {
      return;
    } else {
      link.announcer.due.set(*record, kNever);
    }
  }
}

}  // namespace

Writer announcer_write(Link& link) {
  Writer writer = writer_new(true);
  if (write_goodbyes(link, writer)) {
    write_announcements(link, writer);
  }
  return writer;
}

}  // namespace mdns
