// SPDX-License-Identifier: MIT
// The packets of answers: whole RRsets, additional records, legacy responses (RFC 6762 sections 6.2, 6.7, 10.2 and
// 18.5, RFC 6763 section 12).
#pragma once

#include <vector>

#include "mdns/state/link.h"

namespace mdns {

// With more answers than this no additional records are sent: they would take several times as many packets, and a
// client that lists so many instances asks for the records of the few that it wants.
inline constexpr std::size_t kAdditionalForAtMost = 200;

struct DueAnswer {
  OwnedRecord* record = nullptr;
  Protocols over = kNoProtocol;
};

// Multicasts those of the answers that are due over exactly these protocols, with their additional records.
void send_answers(Link& link, const std::vector<DueAnswer>& answers, Protocols over);

// Sends these answers to the querier by unicast, by the rules of section 6.7 if it is a legacy querier.
void send_reply(Link& link, const PendingQuery& query, const std::vector<OwnedRecord*>& answers);

}  // namespace mdns
