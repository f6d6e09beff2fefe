// SPDX-License-Identifier: MIT
// What somebody has asked the announcer's devices, and which answers that one knows already.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "device.h"
#include "packet.h"

namespace air {

// What one asker wants and says it knows already; more of that may still be coming.
struct Round {
  double due = 0;
  std::unordered_set<std::size_t> types;  // all instances of these
  std::vector<Question> questions;        // for records that only one device has
  std::unordered_set<std::string> known;  // record_key of known answers
};

// Adds the known answers of a query. One whose TTL is below half of the true one does not count (RFC 6762 section 7.1).
void note_known(const Message& message, Round& round);

bool is_known(const Round& round, const std::string& name, std::uint16_t type, const std::string& rdata);

// Whether the question is for records of that type.
bool wants(const Question& question, std::uint16_t type);

// Whether the asker lacks one of the records that the question wants.
bool lacks_service(const Round& round, const Question& question, const Device& device);
bool lacks_address(const Round& round, const Question& question, const Device& device);

}  // namespace air
