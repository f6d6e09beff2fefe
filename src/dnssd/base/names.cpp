// SPDX-License-Identifier: MIT
#include "dnssd/base/names.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdio>

namespace dnssd {
namespace {

// Takes one byte, which may be escaped, off the front of `text`, which is not empty. An escape is a backslash and three
// digits, or a backslash and one other byte. Zero, which no label has, for a malformed escape.
char take_byte(std::string_view& text) {
  if (text[0] == '\\') {
    text.remove_prefix(1);
    unsigned value = 0;
    const char* const end = text.data() + std::min<std::size_t>(text.size(), 3);
    const auto digits = static_cast<std::size_t>(std::from_chars(text.data(), end, value).ptr - text.data());
    if (text.empty() || digits != 0) {
      text.remove_prefix(digits);
      return digits == 3 && value <= 255 ? static_cast<char>(value) : '\0';
    }
  }
  const char c = text[0];
  text.remove_prefix(1);
  return c;
}

bool is_label(std::string_view text) { return !text.empty() && text.size() <= kLabelMax && is_text(text); }

void append_label(std::string& name, std::string_view label) {
  name += static_cast<char>(label.size());
  name += label;
}

// A number in a name's suffix that is larger than this belongs to the name and is not counted up.
constexpr unsigned kSuffixMax = 999'999;

// The bytes that the application label of a type may have behind its underscore.
constexpr std::string_view kTypeBytes = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

// The service type that a name of two labels stands for; nothing when it is none.
std::optional<ServiceType> type_of(std::string_view name) {
  const std::string_view application = mdns::first_label(name);
  const std::string_view transport = mdns::first_label(mdns::parent_name(name));
  if (application.size() < 2 || application[0] != '_' ||
      application.find_first_not_of(kTypeBytes) != application.npos ||
      !(mdns::same_folded(transport, "_tcp") || mdns::same_folded(transport, "_udp")) ||
      mdns::parent_name(mdns::parent_name(name)).size() != 1) {
    return std::nullopt;
  }
  return ServiceType{name_of({application, transport, "local"}), {}};
}

}  // namespace

bool is_text(std::string_view label) {
  // A character that is cut off, longer than need be, a surrogate, or beyond U+10FFFF is none (RFC 3629 section 4).
  constexpr unsigned kLeast[] = {1, 0, 0x80, 0x800, 0x10000};  // by the number of one bits that the first byte begins
                                                               // with
  while (!label.empty()) {
    const auto first = static_cast<unsigned char>(label[0]);
    const auto ones = static_cast<std::size_t>(std::countl_one(first));
    const std::size_t size = std::max<std::size_t>(ones, 1);
    if (ones == 1 || ones > 4 || label.size() < size) {
      return false;
    }
    unsigned code = first & (0xFFu >> ones);
    for (const char c : label.substr(1, size - 1)) {
      if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) {
        return false;
      }
      code = code << 6 | (static_cast<unsigned char>(c) & 0x3Fu);
    }
    if (code < kLeast[ones] || (code & 0x1FF800) == 0xD800 || code > 0x10FFFF) {
      return false;
    }
    label.remove_prefix(size);
  }
  return true;
}

std::optional<std::string> parse_name(std::string_view text) {
  std::string name;
  if (text == ".") {
    text = {};
  }
  while (!text.empty()) {
    std::string label;
    while (!text.empty() && text[0] != '.') {
      label += take_byte(text);
    }
    if (!is_label(label) || name.size() + label.size() + 2 > kNameMax) {
      return std::nullopt;
    }
    append_label(name, label);
    text.remove_prefix(std::min<std::size_t>(text.size(), 1));  // the dot
  }
  name += '\0';
  return name;
}

std::optional<std::string> prepend_label(std::string_view label, std::string_view rest) {
  if (!is_label(label) || 1 + label.size() + rest.size() > kNameMax) {
    return std::nullopt;
  }
  return std::string(1, static_cast<char>(label.size())).append(label).append(rest);
}

std::string name_of(std::initializer_list<std::string_view> labels) {
  std::string name;
  for (const std::string_view label : labels) {
    append_label(name, label);
  }
  name += '\0';
  return name;
}

std::string name_to_text(std::string_view name) {
  std::string text;
  for (; name.size() > 1; name = mdns::parent_name(name)) {
    for (const char c : mdns::first_label(name)) {
      const auto byte = static_cast<unsigned char>(c);
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, byte <= ' ' ? "\\%03u" : c == '.' || c == '\\' ? "\\%c" : "%c", byte);
      text += escaped;
    }
    text += '.';
  }
  return text.empty() ? "." : text;
}

std::optional<ServiceType> parse_service_type(std::string_view text) {
  std::size_t comma = text.find(',');
  const std::optional<std::string> name = parse_name(text.substr(0, comma));
  std::optional<ServiceType> type = name ? type_of(*name) : std::nullopt;
  while (type && comma != text.npos) {
    text.remove_prefix(comma + 1);
    comma = text.find(',');
    const std::optional<std::string> subtype = parse_name(text.substr(0, comma));
    if (!subtype || subtype->size() == 1 || mdns::parent_name(*subtype).size() != 1) {
      return std::nullopt;
    }
    type->subtypes.emplace_back(mdns::first_label(*subtype));
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

std::string type_text(std::string_view type_name) {
  const std::string text = name_to_text(type_name);
  return text.substr(0, text.size() - std::string_view("local.").size());
}

std::string subtype_name(const ServiceType& type, const std::string& subtype) {
  return *prepend_label(subtype, *prepend_label("_sub", type.name));
}

std::string truncate_utf8(std::string_view name, std::size_t room) {
  std::size_t end = std::min(room, name.size());
  while (end > 0 && end < name.size() && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) {
    --end;
  }
  return std::string(name.substr(0, end));
}

std::string next_service_name(std::string_view name) {
  unsigned number = 0;
  const std::size_t open = name.rfind(" (");
  if (open != name.npos && name.ends_with(')')) {
    const char* const last = &name.back();
    const bool is_number = std::from_chars(&name[open] + 2, last, number).ptr == last;
    number = is_number && number <= kSuffixMax ? number : 0;
  }
  if (number >= 2) {
    name = name.substr(0, open);
  }
  const std::string suffix = " (" + std::to_string(std::max(number, 1u) + 1) + ")";
  return truncate_utf8(name, kLabelMax - suffix.size()) + suffix;
}

bool is_local_domain(const char* domain) {
  return domain == nullptr || *domain == '\0' || mdns::same_folded(domain, "local") ||
         mdns::same_folded(domain, "local.");
}

}  // namespace dnssd
