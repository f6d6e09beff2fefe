// SPDX-License-Identifier: MIT
// Multicast DNS messages that the library writes itself: announcements and goodbyes, and questions with what is known already.
#pragma once

#include <avahi-core/rr.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "dnssd/names.h"

namespace dnssd {

// One message under construction, names compressed (RFC 1035 section 4.1.4, RFC 6762 section 18.14).
struct Message {
  Message();  // a response
  std::string bytes;
  std::uint16_t questions = 0;
  std::uint16_t answers = 0;
  std::unordered_map<std::string, std::uint16_t> names;  // where a name that may be pointed at stands, by its text
};

// A query without questions: what its records say is known already.
Message message_query();

// Asks for the records of `name`, by multicast. For a query to which no record has been added. False, and the message is as it was,
// when it would grow beyond one frame; there is always room for the first question.
bool message_ask(Message& message, const Name& name, std::uint16_t rrtype);

// More of what is known follows in another query (RFC 6762 section 7.2).
void message_continues(Message& message);

// Appends `record` with `ttl` (0: a goodbye) and, for one that is unique on the link, the cache-flush bit. False, and the
// message is as it was, when it would grow beyond one frame; a message with nothing in it takes any record that fits into the
// 9000 bytes of RFC 6762 section 17.
bool message_add(Message& message, AvahiRecord& record, std::uint32_t ttl, bool is_unique);

}  // namespace dnssd
