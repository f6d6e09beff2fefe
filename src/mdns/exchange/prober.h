// SPDX-License-Identifier: MIT
// The prober: probes, simultaneous probes of other hosts, and conflicts (RFC 6762 sections 8.1, 8.2 and 9).
//
// Probes are QM questions, although section 8.1 asks for QU: a unicast reply reaches only one of the sockets on the
// port, which may be that of another responder on the same machine. Names that are probed for at about the same time
// share packets.
#pragma once

#include "mdns/state/link.h"
#include "mdns/wire/writer.h"

namespace mdns {

// Handles a query of another host. If it probes for a name that we are probing for, the tie-break of section 8.2
// decides which of both hosts defers. A yielding name (Claim::yielding) is lost if the probe proposes other addresses.
void prober_receive_probe(Link& link, const Message& message);

// Handles a record of another host's response: a conflict if we claim its name and it is not one of our records
// (sections 8.1 and 9).
void prober_receive_record(Link& link, const Record& record);

// Ends the probing of names whose last probe has remained without a conflict.
void prober_advance(Link& link);

// A packet with the probes that are due, as many as fit.
Writer prober_write(Link& link);

}  // namespace mdns
