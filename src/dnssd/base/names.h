// SPDX-License-Identifier: MIT
// DNS names as dns_sd.h writes them, the presentation format: a dot and a backslash are escaped by a backslash, bytes
// up to 32 as \DDD, UTF-8 stands as it is. Everywhere else in the library a name is in wire format (mdns/wire/name.h).
// Also the rules of DNS-SD for service names and types (RFC 6763 sections 4 and 7).
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mdns/wire/name.h"

namespace dnssd {

using mdns::kLabelMax;

// RFC 1035 section 2.3.4: a name holds 255 bytes on the wire with its length bytes.
inline constexpr std::size_t kNameMax = 255;

// Whether a label's text is well-formed UTF-8 (RFC 3629) without a zero byte, which dns_sd.h could not carry.
bool is_text(std::string_view label);

// Reads presentation format, with or without the trailing dot. Nothing on an empty label, a broken escape, what is no
// text, or a name that RFC 1035 does not allow. "." and "" give the root.
std::optional<std::string> parse_name(std::string_view text);

// A name of one label in front of another name; nothing when the label is empty or no text, or either is too long.
std::optional<std::string> prepend_label(std::string_view label, std::string_view rest);

// A name of these labels, which must be valid.
std::string name_of(std::initializer_list<std::string_view> labels);

// The presentation format, with the trailing dot.
std::string name_to_text(std::string_view name);

// A registration type: "_ipp._tcp" with the subtypes that were named with it.
struct ServiceType {
  std::string name;                   // _ipp._tcp.local
  std::vector<std::string> subtypes;  // "_universal", in the order given
};

// Reads "_ipp._tcp", "_ipp._tcp." and the subtype form "_ipp._tcp,_universal" of dns_sd.h. Nothing when it is no DNS-SD
// type: the application is '_' and 1 to 63 bytes less one of letters, digits and hyphens (RFC 6335 says 15; longer ones
// are in use and do no harm), a subtype is any label.
std::optional<ServiceType> parse_service_type(std::string_view text);

// The same for a browse, which may also put the subtype first: "_universal._ipp._tcp". At most one subtype.
std::optional<ServiceType> parse_browse_type(std::string_view text);

std::string type_text(std::string_view type_name);                              // "_ipp._tcp.", as replies carry it
std::string subtype_name(const ServiceType& type, const std::string& subtype);  // _universal._sub._ipp._tcp.local

// Cuts `name` to at most `room` bytes without cutting through a UTF-8 character.
std::string truncate_utf8(std::string_view name, std::size_t room);

// The name to try after a conflict over `name` (RFC 6763 appendix D, RFC 6762 section 9): "Name" gives "Name (2)",
// "Name (2)" gives "Name (3)"; never longer than a label, the number is kept whole.
std::string next_service_name(std::string_view name);

// Whether `domain`, as a caller of dns_sd.h gives it, means link-local multicast: null, "", "local" or "local.".
bool is_local_domain(const char* domain);

}  // namespace dnssd
