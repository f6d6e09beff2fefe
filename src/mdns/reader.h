// SPDX-License-Identifier: MIT
// Takes a received message apart. The bytes come from anybody: every length is checked against what is left, a compressed name
// only points backwards, and the text that compression unfolds to is bounded by the message's own length, so that no message
// costs more than its size.
#pragma once

#include <optional>
#include <vector>

#include "mdns/record.h"

namespace mdns {

struct Message {
  std::uint16_t id = 0;
  bool is_response = false;
  bool is_truncated = false;  // TC
  std::vector<Question> questions;
  std::vector<Record> answers;
  std::vector<Record> authorities;
  std::vector<Record> additionals;
};

// What can be read of a message. Nothing when there is no whole header, or opcode or rcode are not 0 (RFC 6762 section 18.3,
// 18.11). A record that cannot be read ends the reading: what stood before it is there. A record whose length is right but
// whose rdata is not (is_rdata) is left out, and the next one is read. Also left out are records of another class than IN,
// OPT and other pseudo-records (types 41 and 128 to 255), and records without rdata; but a TXT record without rdata is read
// as one with an empty string, which means the same (RFC 6763 section 6.1).
std::optional<Message> read_message(Bytes datagram);

}  // namespace mdns
