// SPDX-License-Identifier: MIT
// The live answers to one question: what Avahi has reported as new and not yet as removed, over both protocols.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace dnssd {

struct Answer {
  unsigned protocols = 0;   // bit per Avahi protocol that has it
  std::uint64_t order = 0;  // larger: became live later
  std::uint32_t ttl = 0;    // seconds, as first reported
};

struct AnswerSet {
  std::map<std::string, Answer> live;  // by rdata
  std::uint64_t next_order = 1;
};

// Notes that `protocol` (0 or 1, as Avahi numbers them) has `rdata`. True when no protocol had it before.
bool answer_add(AnswerSet& set, int protocol, const std::string& rdata, std::uint32_t ttl);

// Notes that `protocol` has lost `rdata`. True when no protocol has it any more.
bool answer_remove(AnswerSet& set, int protocol, const std::string& rdata);

// The answer that became live last, as a pair of rdata and record; null when none is live. Looks at each: for answers that a lookup
// bounds (lookups.h).
const std::pair<const std::string, Answer>* answer_newest(const AnswerSet& set);

}  // namespace dnssd
