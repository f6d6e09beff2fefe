// SPDX-License-Identifier: MIT
#include "mdns/announcer.h"

#include <algorithm>

#include "mdns/link.h"
#include "mdns/writer.h"

namespace mdns {
namespace {

constexpr std::uint8_t kAnnouncements = 2;  // RFC 6762 section 8.3

// RFC 6762 sections 6 and 8.3: a second apart; the rest keeps the second of both from being too early for a clock that runs
// otherwise.
constexpr Time kAnnouncementsApart = kSecond + 5 * kMillisecond;

// What is published in answer to an event, such as the PTR records of a service whose name is established, shares the packet.
constexpr Time kGatheredWithin = 5 * kMillisecond;

// Changed data is announced at once; what changes again and again, at intervals that double up to a second.
constexpr Time kFirstChangeInterval = 20 * kMillisecond;
constexpr Time kLongestChangeInterval = kSecond;
constexpr Time kChangesForgotten = 2 * kSecond;

// What was sent so lately that a cache-flush leaves it alone (RFC 6762 section 10.2), with room for the way of the packets.
constexpr Time kFlushSpares = 500 * kMillisecond;

// The other records of a unique RRset go out with this one, in the same packet or the next (RFC 6762 section 10.2).
void hurry_rrset(Link& link, const OwnedRecord& record) {
  if (!record.is_unique) {
    return;
  }
  for (OwnedRecord* other : record.owner->records) {
    ++link.steps;
    const bool is_one = other != &record && other->type == record.type && other->is_unique && other->is_live;
    if (is_one && other->announcement.at > link.now && !was_multicast_since(link, *other, link.now - kFlushSpares)) {
      other->announcements_left = std::max<std::uint8_t>(other->announcements_left, 1);
      link.announcer.due.set(*other, link.now);
    }
  }
}

// From now on the next change of the name's records waits.
void note_change(const Link& link, const OwnedRecord& record) {
  OwnedName& owned = *record.owner;
  const bool is_calm = owned.change_at < link.now - kChangesForgotten;
  owned.change_interval = is_calm ? kFirstChangeInterval : std::min(2 * owned.change_interval, kLongestChangeInterval);
  owned.change_at = link.now + owned.change_interval;
}

// Whether the data was said so lately that the cache-flush of what takes its place leaves it in caches.
bool is_spared(const Link& link, const Superseded& former) {
  return std::max(former.multicast_at[0], former.multicast_at[1]) + kAnnouncementsApart > link.now;
}

void note_announced(Link& link, OwnedRecord& record) {
  ++link.steps;
  if (record.is_change && record.announcements_left == kAnnouncements) {
    note_change(link, record);
  }
  std::erase_if(record.superseded, [&](const Superseded& former) { return !record.is_unique || !is_spared(link, former); });
  record_was_multicast(link, record, link.protocols, link.now);
  if (record.announcement.at <= link.now) {
    const bool is_last = --record.announcements_left == 0;
    record.is_change = record.is_change && !is_last;
    link.announcer.due.set(record, is_last ? kNever : link.now + kAnnouncementsApart);
  }
}

// Writes what is said of the record; false when there is no room. What a shared one supersedes goes in the same packet,
// before it (section 8.4), so that nobody sees the one without the other; a unique one's cache-flush bit does as much.
bool write_announcement(Writer& writer, const OwnedRecord& record) {
  constexpr std::size_t kRest = 12;  // of a record whose name stands in the packet already
  const std::string_view name = name_of(record);
  if (!record.is_unique && !record.superseded.empty()) {
    std::size_t needed = name.size() + kRest + record.rdata.size();
    for (const Superseded& former : record.superseded) {
      needed += kRest + former.rdata.size();
    }
    if (!writer_is_empty(writer) && writer.bytes.size() + needed > writer.max) {
      return false;
    }
    for (const Superseded& former : record.superseded) {
      writer_add_record(writer, Section::answers, name, record.type, 0, false, former.rdata);
    }
  }
  return writer_add_record(writer, Section::answers, name, record.type, record.ttl, record.is_unique, record.rdata);
}

// Says goodbye for all that was said of the record; false when the packet is full, and what it has no room for is left.
bool write_goodbye(Writer& writer, OwnedRecord& record) {
  const std::string_view name = name_of(record);
  while (!record.superseded.empty()) {
    if (!writer_add_record(writer, Section::answers, name, record.type, 0, false, record.superseded.back().rdata)) {
      return false;
    }
    record.superseded.pop_back();
  }
  return !was_multicast(record) || writer_add_record(writer, Section::answers, name, record.type, 0, false, record.rdata);
}

// When the record was last sent to the group over any protocol of the link. A unique RRset is sent as a whole (RFC 6762
// section 10.2): its other records count, unless they are on their way this very moment, or this one is new.
Time last_sent(Link& link, const OwnedRecord& record) {
  Time last = last_multicast(link, record);
  if (!record.is_unique || (record.is_change && record.announcements_left == kAnnouncements)) {
    return last;
  }
  for (const OwnedRecord* other : record.owner->records) {
    ++link.steps;
    const Time at = last_multicast(link, *other);
    if (other->type == record.type && other->is_unique && at < link.now) {
      last = std::max(last, at);
    }
  }
  return last;
}

// RFC 6762 section 6: a record goes to the group once a second at most. One that has just been sent as an answer has been
// announced by that, if all protocols had it; else it waits. Changed data is said again in any case: the cache-flush of the
// first time spares what the old data's last second was. True when it is not to be announced now.
bool is_just_sent(Link& link, OwnedRecord& record) {
  const Time last = last_sent(link, record);
  if (last + kSecond <= link.now) {
    return false;
  }
  const bool is_announced = was_multicast_since(link, record, link.now - kSecond) && !record.is_change;
  const bool is_over = is_announced && --record.announcements_left == 0;
  link.announcer.due.set(record, is_over ? kNever : last + kAnnouncementsApart);
  return true;
}

}  // namespace

void announce(Link& link, OwnedRecord& record) {
  record.announcements_left = kAnnouncements;
  record.is_change = was_multicast(record);  // others may have said otherwise since
  link.announcer.due.set(record, link.now + kGatheredWithin);
}

void announce_change(Link& link, OwnedRecord& record, Time by) {
  record.announcements_left = kAnnouncements;
  record.is_change = true;
  const Time at = std::max(link.now + kGatheredWithin, record.owner->change_at);
  link.announcer.due.set(record, std::max(std::min(at, by), link.now));
}

void announce_rest(Link& link, OwnedRecord& record) {
  if (record.announcements_left > 0) {
    link.announcer.due.set(record, std::max(link.now + kGatheredWithin, last_multicast(link, record) + kAnnouncementsApart));
  }
}

void announcer_stop(Link& link, OwnedRecord& record) {
  (record.holders == 0 ? link.announcer.goodbyes : link.announcer.due).set(record, kNever);
}

void announcer_say_goodbye(Link& link, OwnedRecord& record) {
  link.announcer.goodbyes.set(record, std::max(link.now, link.goodbyes_at));
}

bool announcer_has_goodbyes(const Link& link) { return link.announcer.goodbyes.next() <= link.now; }

void announcer_write_goodbyes(Link& link, Writer& writer) {
  writer_begin(writer, true);
  Heap<OwnedRecord, &OwnedRecord::announcement>& goodbyes = link.announcer.goodbyes;
  while (goodbyes.next() <= link.now) {
    OwnedRecord& record = *goodbyes.first();
    ++link.steps;
    if (!write_goodbye(writer, record) && !writer_is_empty(writer)) {
      return;
    }
    zone_forget(link, record);
  }
}

bool announcer_is_due(const Link& link) { return link.announcer.due.next() <= link.now; }

void announcer_write(Link& link, Writer& writer) {
  writer_begin(writer, true);
  Heap<OwnedRecord, &OwnedRecord::announcement>& due = link.announcer.due;
  while (due.next() <= link.now) {
    OwnedRecord& record = *due.first();
    if (is_just_sent(link, record)) {
      continue;
    }
    hurry_rrset(link, record);
    if (write_announcement(writer, record)) {
      note_announced(link, record);
    } else if (!writer_is_empty(writer)) {
      return;
    } else {
      due.set(record, kNever);  // more than any packet holds
    }
  }
}

Time announcer_deadline(const Link& link) { return std::min(link.announcer.due.next(), link.announcer.goodbyes.next()); }

}  // namespace mdns
