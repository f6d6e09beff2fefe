// SPDX-License-Identifier: MIT
// Announcements, twice and a second apart, and goodbyes (RFC 6762 sections 8.3, 8.4 and 10.1).
#pragma once

#include "mdns/writer.h"
#include "mdns/zone.h"

namespace mdns {

struct Announcer {
  Heap<OwnedRecord, &OwnedRecord::announcement> due;
  Heap<OwnedRecord, &OwnedRecord::announcement> goodbyes;  // records that nobody holds any more, and whose goodbye is due then
};

// Announces the record, now and again in a second.
void announce(Link& link, OwnedRecord& record);

// The same for data that takes the place of other data: soon, but ever later where a record changes all the time. `by`: when
// the other data, not yet announced themselves, would have been; kNever: they have been.
void announce_change(Link& link, OwnedRecord& record, Time by);

// The record was about to get its goodbye and has not been away: announces it as often as it still was to be.
void announce_rest(Link& link, OwnedRecord& record);

void announcer_stop(Link& link, OwnedRecord& record);

// The record has lost its last holder: it is freed when its goodbye has been written.
void announcer_say_goodbye(Link& link, OwnedRecord& record);

// The packet with as much of what is due as fits: goodbyes, then announcements.
Writer announcer_write(Link& link);

}  // namespace mdns
