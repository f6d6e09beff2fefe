// SPDX-License-Identifier: MIT
#include "dnssd/answers.h"

namespace dnssd {
namespace {

unsigned protocol_bit(int protocol) { return protocol == 1 ? 2u : 1u; }

}  // namespace

bool answer_add(AnswerSet& set, int protocol, const std::string& rdata, std::uint32_t ttl) {
  Answer& answer = set.live[rdata];
  const bool is_new = answer.protocols == 0;
  answer.protocols |= protocol_bit(protocol);
  if (is_new) {
    answer.order = set.next_order++;
    answer.ttl = ttl;
  }
  return is_new;
}

bool answer_remove(AnswerSet& set, int protocol, const std::string& rdata) {
  const auto found = set.live.find(rdata);
  if (found == set.live.end()) {
    return false;
  }
  found->second.protocols &= ~protocol_bit(protocol);
  if (found->second.protocols != 0) {
    return false;
  }
  set.live.erase(found);
  return true;
}

const std::pair<const std::string, Answer>* answer_newest(const AnswerSet& set) {
  const std::pair<const std::string, Answer>* newest = nullptr;
  for (const auto& entry : set.live) {
    if (newest == nullptr || entry.second.order > newest->second.order) {
      newest = &entry;
    }
  }
  return newest;
}

}  // namespace dnssd
