// SPDX-License-Identifier: MIT
#include "mdns/schedule/announcements.h"

#include <algorithm>

namespace mdns {
namespace {

// Announcements wait this long, so that records that are published in reaction to an event, such as the PTR records of
// a service whose name has just been established, share the packet.
constexpr Time kGatheredWithin = 5 * kMillisecond;

}  // namespace

void announce(Link& link, OwnedRecord& record) {
  record.announcements_left = kAnnouncements;
  record.is_change = was_multicast(record);  // caches may have other data by now
  link.announcer.due.set(record, link.now + kGatheredWithin);
}

void announce_change(Link& link, OwnedRecord& record, Time by) {
  record.announcements_left = kAnnouncements;
  record.is_change = true;
  const Time at = std::max(link.now + kGatheredWithin, record.owner->change_at);
  link.announcer.due.set(record, std::max(std::min(at, by), link.now));
}

void announce_remaining(Link& link, OwnedRecord& record) {
  if (record.announcements_left > 0) {
    const Time again_at = latest_multicast(record, link.protocols) + kAnnouncementsApart;
    link.announcer.due.set(record, std::max(link.now + kGatheredWithin, again_at));
  }
}

void announce_stop(Link& link, OwnedRecord& record) {
  (record.holders == 0 ? link.announcer.goodbyes : link.announcer.due).set(record, kNever);
}

void goodbye_queue(Link& link, OwnedRecord& record) {
  const Time remembered_until =
      record.without_goodbye && !link.is_closing ? latest_multicast(record, kBothProtocols) + kSecond : kLongAgo;
  link.announcer.goodbyes.set(record, std::max({link.now, link.goodbyes_at, remembered_until}));
}

}  // namespace mdns
