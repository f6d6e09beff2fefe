// SPDX-License-Identifier: MIT
#include "dnssd/names.h"

#include <avahi-common/domain.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace dnssd {
namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Takes the escape that follows a backslash off the front of `text`. Nothing when it is no escape.
std::optional<char> take_escape(std::string_view& text) {
  if (text.size() >= 3 && is_digit(text[0]) && is_digit(text[1]) && is_digit(text[2])) {
    const int value = (text[0] - '0') * 100 + (text[1] - '0') * 10 + (text[2] - '0');
    text.remove_prefix(3);
    if (value > 255) {
      return std::nullopt;
    }
    return static_cast<char>(value);
  }
  if (text.empty() || is_digit(text[0])) {
    return std::nullopt;
  }
  const char c = text[0];
  text.remove_prefix(1);
  return c;
}

// Takes one label and the dot behind it off the front of `text`.
std::optional<std::string> take_label(std::string_view& text) {
  std::string label;
  while (!text.empty()) {
    char c = text[0];
    text.remove_prefix(1);
    if (c == '.') {
      break;
    }
    if (c == '\\') {
      const std::optional<char> escaped = take_escape(text);
      if (!escaped) {
        return std::nullopt;
      }
      c = *escaped;
    }
    if (c == '\0' || label.size() == kLabelMax) {
      return std::nullopt;
    }
    label += c;
  }
  if (label.empty()) {
    return std::nullopt;
  }
  return label;
}

std::size_t wire_size(const Name& name) {
  std::size_t size = 1;
  for (const std::string& label : name.labels) {
    size += 1 + label.size();
  }
  return size;
}

void append_text_byte(std::string& text, char c) {
  const auto byte = static_cast<unsigned char>(c);
  if (c == '.' || c == '\\') {
    text += '\\';
    text += c;
  } else if (byte <= ' ') {
    char escape[5];
    std::snprintf(escape, sizeof escape, "\\%03u", static_cast<unsigned>(byte));
    text += escape;
  } else {
    text += c;
  }
}

}  // namespace

std::optional<Name> parse_name(std::string_view text) {
  Name name;
  if (text == ".") {
    return name;
  }
  while (!text.empty()) {
    std::optional<std::string> label = take_label(text);
    if (!label) {
      return std::nullopt;
    }
    name.labels.push_back(std::move(*label));
  }
  if (wire_size(name) > kWireNameMax) {
    return std::nullopt;
  }
  return name;
}

std::optional<Name> prepend_label(std::string_view label, const Name& rest) {
  if (label.empty() || label.size() > kLabelMax || label.find('\0') != label.npos) {
    return std::nullopt;
  }
  Name name;
  name.labels.reserve(rest.labels.size() + 1);
  name.labels.emplace_back(label);
  name.labels.insert(name.labels.end(), rest.labels.begin(), rest.labels.end());
  if (wire_size(name) > kWireNameMax) {
    return std::nullopt;
  }
  return name;
}

std::string name_to_text(const Name& name) {
  if (name.labels.empty()) {
    return ".";
  }
  std::string text;
  for (const std::string& label : name.labels) {
    for (const char c : label) {
      append_text_byte(text, c);
    }
    text += '.';
  }
  return text;
}

std::string name_to_avahi(const Name& name) {
  std::string text;
  for (const std::string& label : name.labels) {
    char escaped[kLabelMax * 4 + 1];
    char* end = escaped;
    std::size_t room = sizeof escaped;
    if (avahi_escape_label(label.data(), label.size(), &end, &room) == nullptr) {
      return {};
    }
    if (!text.empty()) {
      text += '.';
    }
    text += escaped;
  }
  return text;
}

std::vector<std::uint8_t> name_to_wire(const Name& name) {
  std::vector<std::uint8_t> wire;
  wire.reserve(wire_size(name));
  for (const std::string& label : name.labels) {
    wire.push_back(static_cast<std::uint8_t>(label.size()));
    wire.insert(wire.end(), label.begin(), label.end());
  }
  wire.push_back(0);
  return wire;
}

bool is_wire_name(std::span<const std::uint8_t> wire) {
  if (wire.size() > kWireNameMax) {
    return false;
  }
  std::size_t at = 0;
  while (at < wire.size() && wire[at] != 0) {
    if (wire[at] > kLabelMax) {
      return false;
    }
    at += 1u + wire[at];
  }
  return at + 1 == wire.size();
}

std::string fold_case(std::string_view text) {
  std::string folded(text);
  std::transform(folded.begin(), folded.end(), folded.begin(), [](char c) { return fold_case(c); });
  return folded;
}

bool ends_with_label(const Name& name, std::string_view label) {
  return !name.labels.empty() && fold_case(name.labels.back()) == fold_case(label);
}

}  // namespace dnssd
