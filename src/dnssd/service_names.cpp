// SPDX-License-Identifier: MIT
#include "dnssd/service_names.h"

#include <algorithm>
#include <charconv>

namespace dnssd {
namespace {

// A number in a name's suffix larger than this is part of the name and is not counted on.
constexpr unsigned kSuffixMax = 999'999;

bool is_type_byte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

// The type that a name of two labels says; nothing when it is none.
std::optional<ServiceType> type_of(std::string_view name) {
  const std::string_view application = mdns::first_label(name);
  const std::string_view transport = mdns::first_label(mdns::parent_name(name));
  if (application.size() < 2 || application[0] != '_' || !std::all_of(application.begin(), application.end(), is_type_byte) ||
      !(mdns::same_folded(transport, "_tcp") || mdns::same_folded(transport, "_udp")) ||
      mdns::parent_name(mdns::parent_name(name)).size() != 1) {
    return std::nullopt;
  }
  return ServiceType{std::string(application), std::string(transport), {}};
}

// Adds the comma-separated subtypes in `list`; false when one of them is no label.
bool add_subtypes(ServiceType& type, std::string_view list) {
  for (;;) {
    const std::size_t comma = list.find(',');
    const std::optional<std::string> name = parse_name(list.substr(0, comma));
    if (!name || name->size() == 1 || mdns::parent_name(*name).size() != 1) {
      return false;
    }
    type.subtypes.emplace_back(mdns::first_label(*name));
    if (comma == list.npos) {
      return true;
    }
    list.remove_prefix(comma + 1);
  }
}

// "Name (7)" taken apart; number 1 and the whole name when there is no such suffix.
struct Numbered {
  std::string_view base;
  unsigned number;
};

Numbered split_number(std::string_view name) {
  const std::size_t open = name.rfind(" (");
  if (open != name.npos && name.ends_with(')')) {
    unsigned number = 0;
    const char* const last = &name.back();
    const auto [end, error] = std::from_chars(&name[open] + 2, last, number);
    if (end == last && error == std::errc() && number >= 2 && number <= kSuffixMax) {
      return {name.substr(0, open), number};
    }
  }
  return {name, 1};
}

}  // namespace

std::optional<ServiceType> parse_service_type(std::string_view text) {
  const std::size_t comma = text.find(',');
  const std::optional<std::string> name = parse_name(text.substr(0, comma));
  std::optional<ServiceType> type = name ? type_of(*name) : std::nullopt;
  if (type && comma != text.npos && !add_subtypes(*type, text.substr(comma + 1))) {
    return std::nullopt;
  }
  return type;
}

std::optional<ServiceType> parse_browse_type(std::string_view text) {
  const std::optional<std::string> name = parse_name(text);
  std::optional<ServiceType> type = name ? type_of(mdns::parent_name(*name)) : std::nullopt;
  if (type) {
    type->subtypes.emplace_back(mdns::first_label(*name));
    return type;
  }
  type = parse_service_type(text);
  return type && type->subtypes.size() <= 1 ? type : std::nullopt;
}

std::string type_text(const ServiceType& type) { return type.application + "." + type.transport + "."; }

std::string type_name(const ServiceType& type) { return name_of({type.application, type.transport, "local"}); }

std::string subtype_name(const ServiceType& type, const std::string& subtype) {
  return name_of({subtype, "_sub", type.application, type.transport, "local"});
}

std::string truncate_utf8(std::string_view name, std::size_t room) {
  if (name.size() <= room) {
    return std::string(name);
  }
  std::size_t end = room;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) {
    --end;
  }
  return std::string(name.substr(0, end));
}

std::string next_service_name(std::string_view name) {
  const Numbered numbered = split_number(name);
  const std::string suffix = " (" + std::to_string(numbered.number + 1) + ")";
  return truncate_utf8(numbered.base, kLabelMax - suffix.size()) + suffix;
}

bool is_local_domain(const char* domain) {
  return domain == nullptr || *domain == '\0' || mdns::same_folded(domain, "local") || mdns::same_folded(domain, "local.");
}

}  // namespace dnssd
