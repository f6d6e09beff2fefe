// SPDX-License-Identifier: MIT
#include "mdns/schedule/answers.h"

#include <algorithm>

namespace mdns {

Time may_be_sent_at(const Link& link, const OwnedRecord& record, Protocols protocol) {
  if (record.rescue_over & protocol) {
    return link.now;
  }
  return rrset_multicast_at(record, protocol) + (record.defend_over & protocol ? kDefencesApart : kMulticastApart);
}

Time next_answer_at(const Link& link, const OwnedRecord& record, Protocols protocols) {
  Time at = kNever;
  for (const Protocols protocol : kEachProtocol) {
    if (protocols & protocol) {
      at = std::min(at, may_be_sent_at(link, record, protocol));
    }
  }
  return at;
}

void answer_at(Link& link, OwnedRecord& record, Protocols protocols, Time at) {
  const Time before = record.answer_over != kNoProtocol ? record.answer.at : kNever;
  record.answer_over = static_cast<std::uint8_t>(record.answer_over | protocols);
  if (record.rescue_over != kNoProtocol && before != kNever) {
    return;  // the time of a rescue stays
  }
  link.responder.due.set(record, std::max(std::min(at, before), next_answer_at(link, record, record.answer_over)));
}

void answer_cancel(Link& link, OwnedRecord& record, Protocols protocols) {
  record.answer_over = static_cast<std::uint8_t>(record.answer_over & ~protocols);
  record.rescue_over = static_cast<std::uint8_t>(record.rescue_over & ~protocols);
  if (record.answer_over == kNoProtocol) {
    record.defend_over = kNoProtocol;
    record.is_one_of_many = false;
    link.responder.due.set(record, kNever);
  }
}

void record_was_multicast(Link& link, OwnedRecord& record, Protocols protocols, Time at) {
  for (const Protocols protocol : kEachProtocol) {
    if (protocols & protocol) {
      record.multicast_at[index_of(protocol)] = at;
    }
  }
  answer_cancel(link, record, protocols);
}

}  // namespace mdns
