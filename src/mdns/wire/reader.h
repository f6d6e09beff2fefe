// SPDX-License-Identifier: MIT
// Parses a received message. Its bytes are not trusted: every length is checked against the bytes that remain,
// compression pointers must point backwards, and the total length of the decompressed names is bounded by a multiple of
// the message's length, so that the work is in proportion to the size of the message.
#pragma once

#include <optional>
#include <vector>

#include "mdns/wire/record.h"

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

// What can be read of a message. Nothing when there is no whole header, or opcode or rcode are not 0 (RFC 6762 section
// 18.3, 18.11). A record that cannot be read ends the reading: what stood before it is there. A record whose length is
// right but whose rdata is not (is_rdata) is left out, and the next one is read. Also left out are records of another
// class than IN, OPT and other pseudo-records (types 41 and 128 to 255), and records without rdata; but a TXT record
// without rdata is read as one with an empty string, which means the same (RFC 6763 section 6.1).
std::optional<Message> read_message(Bytes datagram);

}  // namespace mdns
