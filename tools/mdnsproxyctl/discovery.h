// SPDX-License-Identifier: MIT
// The services of a link, found by questions of our own (question.h) and not by the daemon's.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mdnsproxyctl/machine.h"

struct FoundService {
  std::string type;  // as it was asked for
  std::string name;
  std::string host;  // "printer.local.", as the state file writes it; "": it was not said
  std::uint16_t port = 0;
  std::vector<std::string> addresses;  // IPv4 first; link-local ones too
  bool through_gateway = false;        // a gateway has announced it there
};

// Services of these types, which may have a subtype ("_universal._ipp._tcp"), on the link. Takes up to three times
// kQuestionMilliseconds. What strangers said is given as they said it; at most kMostFound services are looked at.
std::vector<FoundService> discover(const MachineLink& link, const std::vector<std::string>& types);

// More than a link has in earnest.
inline constexpr std::size_t kMostFound = 1024;

// Whether the address means something on its own link alone (RFC 3927, RFC 4291 section 2.5.6).
bool is_link_local(const std::string& address);
