// SPDX-License-Identifier: MIT
// Whose a name is: probes, simultaneous probes of others, and conflicts (RFC 6762 sections 8.1, 8.2 and 9).
//
// Probes are QM questions and not QU, as section 8.1 would have them: a reply by unicast reaches one socket on the port
// alone, and which one is not ours to choose where another responder runs on the same machine. Names that are to be probed
// for at about the same time share packets.
#pragma once

#include "mdns/reader.h"
#include "mdns/writer.h"
#include "mdns/zone.h"

namespace mdns {

struct Prober {
  Heap<OwnedName, &OwnedName::probe> due;     // names whose next probe is due then
  Heap<OwnedName, &OwnedName::probe> ending;  // names whose last probe has been sent: they are ours then
  Time batch_at = kLongAgo;                   // when the names that are waiting are probed for first
};

// Begins to probe for a name that is claimed, with the others that wait.
void prober_begin(Link& link, OwnedName& owned);

void prober_stop(Link& link, OwnedName& owned);

// A query of another host: where it probes for a name that we are probing for, one of both gives way (section 8.2); and so do
// we, where we only borrow the name (Claim::yielding).
void prober_receive_probe(Link& link, const Message& message);

// A record of another host's response: a conflict, if it is of a name that we claim and not one of our records (sections 8.1
// and 9).
void prober_receive_record(Link& link, const Record& record);

// Ends the probing of names that nobody has contradicted.
void prober_advance(Link& link);

// The packet with as many probes that are due as fit.
Writer prober_write(Link& link);

}  // namespace mdns
