// SPDX-License-Identifier: MIT
// Whether a text can be a DNS-SD service type as the daemon's files write it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Types as long as this have no room in the daemon's subtype field, which holds one character less and its end.
inline constexpr std::size_t kServiceTypeRoom = 64;

// What is wrong with the type. `cure` is a sentence without its full stop.
struct TypeFault {
  std::string message;
  std::string cure;
};

// The first fault of the type: not "_name._tcp" or "_name._udp", with one subtype label in front or none (RFC 6763
// sections 4.1.2 and 7; names by RFC 6335 section 5.1), or 64 characters and more. Nothing when it is in order.
std::optional<TypeFault> find_type_fault(std::string_view type);
