// SPDX-License-Identifier: MIT
// The packets that answers go out in: whole RRsets, and the records that an asker will want next (RFC 6762 sections 6.2, 6.7,
// 10.2 and 18.5, RFC 6763 section 12).
#pragma once

#include <vector>

#include "mdns/responder.h"

namespace mdns {

struct DueAnswer {
  OwnedRecord* record = nullptr;
  Protocols over = kNoProtocol;
};

// Sends to the group those of the answers that are due over just these protocols, with their additional records.
void send_answers(Link& link, const std::vector<DueAnswer>& answers, Protocols over);

void send_reply(Link& link, const DirectReply& reply);

}  // namespace mdns
