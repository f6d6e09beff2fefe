// SPDX-License-Identifier: MIT
#include "dnssd/service_names.h"

#include <algorithm>

namespace dnssd {
namespace {

// A number in a name's suffix longer than this is part of the name and is not counted on.
constexpr std::size_t kSuffixDigitsMax = 6;

bool is_type_byte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

bool is_application(std::string_view label) {
  return label.size() >= 2 && label[0] == '_' && std::all_of(label.begin() + 1, label.end(), is_type_byte);
}

bool is_transport(std::string_view label) {
  const std::string folded = fold_case(label);
  return folded == "_tcp" || folded == "_udp";
}

std::optional<ServiceType> type_of_labels(std::string_view application, std::string_view transport) {
  if (!is_application(application) || !is_transport(transport)) {
    return std::nullopt;
  }
  return ServiceType{std::string(application), std::string(transport), {}};
}

// Adds the comma-separated subtypes in `list`; false when one of them is no label.
bool add_subtypes(ServiceType& type, std::string_view list) {
  for (;;) {
    const std::size_t comma = list.find(',');
    const std::optional<Name> label = parse_name(list.substr(0, comma));
    if (!label || label->labels.size() != 1) {
      return false;
    }
    type.subtypes.push_back(label->labels[0]);
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
  if (open == name.npos || !name.ends_with(')')) {
    return {name, 1};
  }
  const std::string_view digits = name.substr(open + 2, name.size() - open - 3);
  if (digits.empty() || digits.size() > kSuffixDigitsMax) {
    return {name, 1};
  }
  unsigned number = 0;
  for (const char c : digits) {
    if (c < '0' || c > '9') {
      return {name, 1};
    }
    number = number * 10 + static_cast<unsigned>(c - '0');
  }
  if (number < 2) {
    return {name, 1};
  }
  return {name.substr(0, open), number};
}

}  // namespace

std::optional<ServiceType> parse_service_type(std::string_view text) {
  const std::size_t comma = text.find(',');
  const std::optional<Name> name = parse_name(text.substr(0, comma));
  if (!name || name->labels.size() != 2) {
    return std::nullopt;
  }
  std::optional<ServiceType> type = type_of_labels(name->labels[0], name->labels[1]);
  if (type && comma != text.npos && !add_subtypes(*type, text.substr(comma + 1))) {
    return std::nullopt;
  }
  return type;
}

std::optional<ServiceType> parse_browse_type(std::string_view text) {
  std::optional<ServiceType> type;
  const std::optional<Name> name = parse_name(text);
  if (name && name->labels.size() == 3) {
    type = type_of_labels(name->labels[1], name->labels[2]);
    if (type) {
      type->subtypes.push_back(name->labels[0]);
    }
  } else {
    type = parse_service_type(text);
  }
  if (type && type->subtypes.size() > 1) {
    return std::nullopt;
  }
  return type;
}

std::string type_text(const ServiceType& type) { return type.application + "." + type.transport + "."; }

Name type_name(const ServiceType& type) { return Name{{type.application, type.transport, "local"}}; }

Name subtype_name(const ServiceType& type, const std::string& subtype) {
  return Name{{subtype, "_sub", type.application, type.transport, "local"}};
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
  if (domain == nullptr || *domain == '\0') {
    return true;
  }
  const std::string folded = fold_case(domain);
  return folded == "local" || folded == "local.";
}

bool is_txt_data(std::span<const std::uint8_t> txt) {
  std::size_t at = 0;
  while (at < txt.size()) {
    at += 1u + txt[at];
  }
  return at == txt.size();
}

}  // namespace dnssd
