// SPDX-License-Identifier: MIT
// The hosts that datagrams are received from, each with a token bucket of bytes: datagrams of a host that floods the
// link are dropped, those of the other hosts are not.
#pragma once

#include "mdns/state/link.h"

namespace mdns {

// The source for the endpoint's address, made if need be; `overflow` when there are too many of them.
Source& source_get(Link& link, Endpoint host);

// Whether the source's token bucket allows a datagram of that many bytes now; if so, its tokens are taken. If not,
// nothing has changed and the caller drops the datagram.
bool source_allows(Link& link, Source& source, std::size_t bytes);

// To be called when a cache entry of the source has been removed.
void source_drop_entry(Link& link, Source& source);

void sources_advance(Link& link);

}  // namespace mdns
