// SPDX-License-Identifier: MIT
#include "round.h"

namespace air {
namespace {

std::string record_key(const std::string& name, std::uint16_t type, const std::string& rdata) {
  return folded(name) + static_cast<char>(type) + (type == kTypePtr ? folded(rdata) : rdata);
}

}  // namespace

bool is_known(const Round& round, const std::string& name, std::uint16_t type, const std::string& rdata) {
  return !round.known.empty() && round.known.contains(record_key(name, type, rdata));
}

bool wants(const Question& question, std::uint16_t type) { return question.type == type || question.type == kTypeAny; }

bool lacks_service(const Round& round, const Question& question, const Device& device) {
  return (wants(question, kTypeSrv) && !is_known(round, device.instance, kTypeSrv, device.srv)) ||
         (wants(question, kTypeTxt) && !is_known(round, device.instance, kTypeTxt, device.txt));
}

bool lacks_address(const Round& round, const Question& question, const Device& device) {
  return (wants(question, kTypeA) && !device.a.empty() && !is_known(round, device.host, kTypeA, device.a)) ||
         (wants(question, kTypeAaaa) && !device.aaaa.empty() && !is_known(round, device.host, kTypeAaaa, device.aaaa));
}

void note_known(const Message& message, Round& round) {
  for (const Record& record : message.answers) {
    const bool is_host_record = record.type != kTypePtr && record.type != kTypeTxt;
    if (record.ttl * 2 < (is_host_record ? kHostTtl : kOtherTtl))
      continue;
    std::string rdata = record.rdata;
    if (record.type == kTypePtr)
      rdata = record.target;
    if (record.type == kTypeSrv)
      rdata = record.rdata.substr(0, 6) + record.target;
    round.known.insert(record_key(record.name, record.type, rdata));
  }
}

}  // namespace air
