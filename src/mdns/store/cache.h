// SPDX-License-Identifier: MIT
// The cache: records received from other hosts of the link, by name and type (RFC 6762 sections 5.2 and 10).
//
// Lifecycle of a cache entry: a response makes it; the same record received again renews it. A goodbye, or a response
// with the cache-flush bit that leaves it out, lets it expire after one more second (sections 10.1 and 10.2). While a
// query asks for it, it is refreshed by questions from 80 percent of its TTL on. It is removed when it expires, when
// other hosts have asked for it without an answer (section 10.5), when its link or protocol is gone, or to make room
// for another entry: entries that no query asks for go first.
#pragma once

#include "mdns/state/link.h"

namespace mdns {

// To be called when the link itself no longer publishes the record. If a query of the link itself asks for the RRset,
// an entry for the record is made that expires after the second of the goodbye, as in the caches of other hosts: a host
// that publishes the same record sends it within that time.
void cache_keep_for_goodbye(Link& link, RRset& rrset, std::uint32_t ttl, std::string_view rdata);

// Enters a record of a response that was received over `protocol`; a TTL of 0 is a goodbye.
void cache_receive(Link& link, const Record& record, Protocols protocol, Source& source);

// To be called when another host has asked for the RRset without known answers.
void cache_others_asked(Link& link, RRset& rrset);

// To be called when the first query that asks for the RRset has started or the last one has stopped: from now on its
// entries are refreshed, or no longer.
void cache_wanted_changed(Link& link, RRset& rrset);

// Removes the entries that were received only over other protocols than these.
void cache_keep_protocols(Link& link, Protocols protocols);

// Does what is due.
void cache_advance(Link& link);

}  // namespace mdns
