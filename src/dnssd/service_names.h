// SPDX-License-Identifier: MIT
// What DNS-SD says about service names and types (RFC 6763 sections 4 and 7), and the new name after a conflict.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dnssd/names.h"

namespace dnssd {

// A registration type taken apart: "_ipp._tcp" with the subtypes that were named with it.
struct ServiceType {
  std::string application;            // "_ipp"
  std::string transport;              // "_tcp" or "_udp"
  std::vector<std::string> subtypes;  // "_universal", in the order given
};

// Reads "_ipp._tcp", "_ipp._tcp." and the subtype form "_ipp._tcp,_universal" of dns_sd.h. Nothing when it is no DNS-SD
// type: the application is '_' and 1 to 63 bytes less one of letters, digits and hyphens (RFC 6335 says 15; longer ones
// are in use and do no harm), a subtype is any label.
std::optional<ServiceType> parse_service_type(std::string_view text);

// The same for a browse, which may also put the subtype first: "_universal._ipp._tcp". At most one subtype.
std::optional<ServiceType> parse_browse_type(std::string_view text);

std::string type_text(const ServiceType& type);                                 // "_ipp._tcp.", as replies carry it
std::string type_name(const ServiceType& type);                                 // the name _ipp._tcp.local
std::string subtype_name(const ServiceType& type, const std::string& subtype);  // _universal._sub._ipp._tcp.local

// Cuts `name` to at most `room` bytes without cutting through a UTF-8 character.
std::string truncate_utf8(std::string_view name, std::size_t room);

// The name to try after a conflict over `name` (RFC 6763 appendix D, RFC 6762 section 9): "Name" gives "Name (2)",
// "Name (2)" gives "Name (3)"; never longer than a label, the number is kept whole.
std::string next_service_name(std::string_view name);

// Whether `domain`, as a caller of dns_sd.h gives it, means link-local multicast: null, "", "local" or "local.".
bool is_local_domain(const char* domain);

}  // namespace dnssd
