// SPDX-License-Identifier: MIT
// The zone: the records that the link publishes by name, the publications that hold them, and the state of their names.
//
// Lifecycle of an owned record: the first publication that has it makes it. A shared record is live at once, a unique
// one when its name has been probed for (exchange/prober.h). Live records are announced (exchange/announcer.h), sent as
// answers (exchange/responder.h) and reported to the link's own queries. When its last holder withdraws it, a goodbye
// is sent, if the record was ever sent, and it is freed; a publication that holds it again before that keeps it. When
// other data replaces a unique record, the announcement of the new data stands for the goodbye (RFC 6762 section 8.4).
// After a conflict that another host wins, all publications that claim the name end without a goodbye.
#pragma once

#include <string_view>

#include "mdns/state/link.h"

namespace mdns {

// What is published under the name, or about to be; made if need be.
OwnedName& owned_get(Link& link, std::string_view name);

// To be called when a publication or record of the name has gone. Without publications that claim it, its probing stops
// or it becomes unclaimed once the goodbyes of its unique records are sent; without records it is freed.
void owned_review(Link& link, OwnedName& owned);

// Adds a holder to the record with that data, which is made if need be. A record that waits for its goodbye is treated
// like a new one, except that other hosts have it in their caches.
OwnedRecord& record_hold(Link& link, OwnedName& owner, const RecordData& data, bool is_unique);

// Removes one holder of the record; without any, the record is withdrawn.
void record_unhold(Link& link, OwnedRecord& record, bool with_goodbye);

// Sets whether the record is live, and reports a change to the link's own queries unless the cache has the same record
// of another host. The removal of a record is reported when the second after its goodbye is over.
void set_live(Link& link, OwnedRecord& record, bool is_live);

// Makes the record live and announces it, or sends only those announcements that were left when it was withdrawn.
void go_live(Link& link, OwnedRecord& record);

// Whether the record is live only while the claim of its name is established.
inline bool is_claimed(const OwnedRecord& record) {
  return record.holders > 0 && (record.is_unique || yields(*record.owner));
}

// Frees a record whose goodbye has been written, and its name if nothing is left of it.
void zone_forget(Link& link, OwnedRecord& record);

// Frees the superseded unique records of the same type that were last multicast at `last_said` or before: the
// cache-flush bit of the record has removed them from all caches.
void zone_forget_superseded(Link& link, const OwnedRecord& record, Time last_said);

// Reports to a query that starts the live records of its name and type that are not in the cache.
void zone_report_to(Link& link, const RRset& rrset, const Query& query);

// The NSEC record of the name, which lists the types that it has (RFC 6762 section 6.1). Null when the name is not
// ours, and when it has a type above 255, for which the restricted form of the record has no room.
OwnedRecord* zone_denial(OwnedName& owned);

}  // namespace mdns
