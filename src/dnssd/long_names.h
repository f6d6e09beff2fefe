// SPDX-License-Identifier: MIT
// Answers questions for names that Avahi cannot read.
//
// Avahi reads the name in a question into 256 bytes, escaped: a name whose bytes are mostly none of ASCII's letters and digits (an
// instance of twenty Japanese characters, say) does not fit, and Avahi drops the whole packet. It announces and finds such
// names, but answers no question for them and, what is worse, no probe, so that another host takes the name as well. So as long
// as a record with such a name is published on an interface, the library hears the questions there itself. Two hosts that probe
// for such a name at the same time find each other out when they announce it, and not before.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace dnssd {

struct Publication;

// A record with such a name.
struct LongNamed {
  std::uintptr_t publication = 0;  // serial
  std::uint16_t rrtype = 0;
};

// Those of a server, by folded name (Avahi text).
using LongNames = std::unordered_multimap<std::string, LongNamed>;

// From now on, until long_names_forget: answers questions for those of the publication's records that have such a name.
void long_names_note(const Publication& publication);

// Nothing happens for a publication that has none.
void long_names_forget(const Publication& publication);

}  // namespace dnssd
