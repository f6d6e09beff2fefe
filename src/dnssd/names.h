// SPDX-License-Identifier: MIT
// DNS names as dns_sd.h writes them, the presentation format: a dot and a backslash are escaped by a backslash, bytes up to 32 as
// \DDD, UTF-8 stands as it is. Everywhere else in the library a name is in wire format (mdns/name.h).
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "mdns/name.h"

namespace dnssd {

using mdns::kLabelMax;

// RFC 1035 section 2.3.4: a name holds 255 bytes on the wire with its length bytes.
inline constexpr std::size_t kNameMax = 255;

// Whether a label's text is well-formed UTF-8 (RFC 3629) without a zero byte, which dns_sd.h could not carry.
bool is_text(std::string_view label);

// Reads presentation format, with or without the trailing dot. Nothing on an empty label, a broken escape, what is no text, or a
// name that RFC 1035 does not allow. "." and "" give the root.
std::optional<std::string> parse_name(std::string_view text);

// A name of one label in front of another name; nothing when the label is empty or no text, or either is too long.
std::optional<std::string> prepend_label(std::string_view label, std::string_view rest);

// A name of these labels, which are known to be ones.
std::string name_of(std::initializer_list<std::string_view> labels);

// The presentation format, with the trailing dot.
std::string name_to_text(std::string_view name);

}  // namespace dnssd
