// SPDX-License-Identifier: MIT
// Announcements, twice and a second apart, and goodbyes (RFC 6762 sections 8.3, 8.4 and 10.1).
#pragma once

#include "mdns/writer.h"
#include "mdns/zone.h"

namespace mdns {

struct Announcer {
  Heap<OwnedRecord, &OwnedRecord::announcement> due;
  Heap<OwnedRecord, &OwnedRecord::announcement> goodbyes;  // records without a holder, by the time of their goodbye
};

// Announces the record now and once more after a second.
void announce(Link& link, OwnedRecord& record);

// Announces a record that replaces other data. The delay grows if the data of its name changes again and again. `by`:
// if the replaced data has not been announced yet, the time of its announcement; else kNever.
void announce_change(Link& link, OwnedRecord& record, Time by);

// Sends the remaining announcements of a record that was withdrawn and is published again before its goodbye was sent.
void announce_remaining(Link& link, OwnedRecord& record);

void announcer_stop(Link& link, OwnedRecord& record);

// Queues the goodbye of a record that has no holder any more; the record is freed when it has been written.
void announcer_queue_goodbye(Link& link, OwnedRecord& record);

// A packet with the goodbyes that are due, then the announcements, as many as fit.
Writer announcer_write(Link& link);

}  // namespace mdns
