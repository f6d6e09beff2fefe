// SPDX-License-Identifier: MIT
// The times of announcements, twice and a second apart, and of goodbyes (RFC 6762 sections 8.3, 8.4 and 10.1).
#pragma once

#include "mdns/state/link.h"

namespace mdns {

// RFC 6762 sections 6 and 8.3: one second, and 5 ms more for a receiver whose clock is faster.
inline constexpr Time kAnnouncementsApart = kSecond + 5 * kMillisecond;

// Announces the record now and once more after a second.
void announce(Link& link, OwnedRecord& record);

// Announces a record that replaces other data. The delay grows if the data of its name changes again and again. `by`:
// if the replaced data has not been announced yet, the time of its announcement; else kNever.
void announce_change(Link& link, OwnedRecord& record, Time by);

// Sends the remaining announcements of a record that was withdrawn and is published again before its goodbye was sent.
void announce_remaining(Link& link, OwnedRecord& record);

// Cancels its announcements; of a record without a holder, its goodbye.
void announce_stop(Link& link, OwnedRecord& record);

// Queues the goodbye of a record that has no holder any more; the record is freed when it has been written.
void goodbye_queue(Link& link, OwnedRecord& record);

}  // namespace mdns
