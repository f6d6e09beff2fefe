// SPDX-License-Identifier: MIT
#include "mdns/announcer.h"

#include <algorithm>

#include "mdns/link.h"

namespace mdns {
namespace {

// RFC 6762 sections 6 and 8.3: a second apart; the rest is for a receiver whose clock runs otherwise.
constexpr Time kAnnouncementsApart = kSecond + 5 * kMillisecond;

// What is published in answer to an event, such as the PTR records of a service whose name is established, shares the packet.
constexpr Time kGatheredWithin = 5 * kMillisecond;

// Changed data is announced at once; what changes again and again, at intervals that double up to a second.
constexpr Time kFirstChangeInterval = 20 * kMillisecond;
constexpr Time kLongestChangeInterval = kSecond;
constexpr Time kChangesForgotten = 2 * kSecond;

// The other records of a unique RRset go out with this one, in the same packet or the next (RFC 6762 section 10.2).
void hurry_rrset(Link& link, const OwnedRecord& record) {
  if (!record.is_unique) {
    return;
  }
  for (OwnedRecord* other : record.owner->records) {
    ++link.steps;
    const bool is_rest = other != &record && share_rrset(record, *other) && other->is_live;
    if (is_rest && other->announcement.at > link.now && !was_multicast_since(*other, link.protocols, link.now - kFlushSpares)) {
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

void note_announced(Link& link, OwnedRecord& record) {
  ++link.steps;
  if (record.is_change && record.announcements_left == kAnnouncements) {
    note_change(link, record);
  }
  // What was said so lately that this cache-flush leaves it in caches goes with the next one (RFC 6762 section 10.2).
  zone_forget_superseded(link, record, link.now - kAnnouncementsApart);
  record_was_multicast(link, record, link.protocols, link.now);
  if (record.announcement.at <= link.now) {
    const bool is_last = --record.announcements_left == 0;
    record.is_change = record.is_change && !is_last;
    link.announcer.due.set(record, is_last ? kNever : link.now + kAnnouncementsApart);
  }
}

bool write(Writer& writer, const OwnedRecord& record, std::uint32_t ttl, bool cache_flush) {
  return writer_add_record(writer, Section::answers, name_of(record), record.type, ttl, cache_flush, record.rdata);
}

// RFC 6762 section 6: a record goes to the group once a second at most, with the rest of its RRset unless that has just gone out,
// or the record is new. One that has just been sent as an answer has been announced by that, if all protocols had it; else it
// waits. Changed data is said again in any case: the cache-flush of the first time spares what the old data's last second was.
// True when it is not to be announced now.
bool is_just_sent(Link& link, OwnedRecord& record) {
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

// What does not fit is left for the next packet, in these two: false. More than any packet holds is not said.
bool write_goodbyes(Link& link, Writer& writer) {
  while (OwnedRecord* record = link.announcer.goodbyes.due(link.now)) {
    ++link.steps;
    if (!record->is_forsaken && !write(writer, *record, 0, false) && !writer_is_empty(writer)) {
      return false;
    }
    zone_forget(link, *record);
  }
  return true;
}

void write_announcements(Link& link, Writer& writer) {
  while (OwnedRecord* record = link.announcer.due.due(link.now)) {
    if (is_just_sent(link, *record)) {
      continue;
    }
    hurry_rrset(link, *record);
    if (write(writer, *record, record->ttl, record->is_unique)) {
      note_announced(link, *record);
    } else if (!writer_is_empty(writer)) {
      return;
    } else {
      link.announcer.due.set(*record, kNever);
    }
  }
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
    const Time again_at = latest_multicast(record, link.protocols) + kAnnouncementsApart;
    link.announcer.due.set(record, std::max(link.now + kGatheredWithin, again_at));
  }
}

void announcer_stop(Link& link, OwnedRecord& record) {
  (record.holders == 0 ? link.announcer.goodbyes : link.announcer.due).set(record, kNever);
}

void announcer_say_goodbye(Link& link, OwnedRecord& record) {
  const Time remembered_until =
      record.is_forsaken && !link.is_closing ? latest_multicast(record, kBothProtocols) + kSecond : kLongAgo;
  link.announcer.goodbyes.set(record, std::max({link.now, link.goodbyes_at, remembered_until}));
}

Writer announcer_write(Link& link) {
  Writer writer = writer_new(true);
  if (write_goodbyes(link, writer)) {
    write_announcements(link, writer);
  }
  return writer;
}

}  // namespace mdns
