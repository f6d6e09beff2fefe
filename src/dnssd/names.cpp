// SPDX-License-Identifier: MIT
#include "dnssd/names.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace dnssd {
namespace {

// Takes the escape that follows a backslash off the front of `text`: three digits, or one other byte. Nothing when it is no
// escape.
std::optional<char> take_escape(std::string_view& text) {
  unsigned value = 0;
  const auto digits = std::from_chars(text.data(), text.data() + std::min<std::size_t>(text.size(), 3), value).ptr - text.data();
  if (text.empty() || (digits != 0 && (digits != 3 || value > 255))) {
    return std::nullopt;
  }
  const char c = digits == 0 ? text[0] : static_cast<char>(value);
  text.remove_prefix(digits == 0 ? 1 : 3);
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
    if (label.size() == kLabelMax) {
      return std::nullopt;
    }
    label += c;
  }
  return label.empty() || !is_text(label) ? std::nullopt : std::optional(std::move(label));
}

void append_label(std::string& name, std::string_view label) {
  name += static_cast<char>(label.size());
  name += label;
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

// Takes one UTF-8 character off the front of `text`, which is not empty. False when it is none: cut off, longer than need be, a
// surrogate, or beyond U+10FFFF (RFC 3629 section 4).
bool take_character(std::string_view& text) {
  constexpr unsigned kLeast[] = {0, 0x80, 0x800, 0x10000};  // by the number of bytes that follow the first
  const auto first = static_cast<unsigned char>(text[0]);
  text.remove_prefix(1);
  if (first < 0x80) {
    return true;
  }
  const unsigned more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
  unsigned code = first & (0x3Fu >> more);
  for (unsigned i = 0; i < more; ++i) {
    if (text.empty() || (static_cast<unsigned char>(text[0]) & 0xC0) != 0x80) {
      return false;
    }
    code = code << 6 | (static_cast<unsigned char>(text[0]) & 0x3Fu);
    text.remove_prefix(1);
  }
  return first >= 0xC0 && first < 0xF8 && code >= kLeast[more] && (code & 0x1FF800) != 0xD800 && code <= 0x10FFFF;
}

}  // namespace

bool is_text(std::string_view label) {
  if (label.find('\0') != label.npos) {
    return false;
  }
  while (!label.empty()) {
    if (!take_character(label)) {
      return false;
    }
  }
  return true;
}

std::optional<std::string> parse_name(std::string_view text) {
  std::string name;
  if (text == ".") {
    text = {};
  }
  while (!text.empty()) {
    const std::optional<std::string> label = take_label(text);
    if (!label || name.size() + label->size() + 2 > kNameMax) {
      return std::nullopt;
    }
    append_label(name, *label);
  }
  name += '\0';
  return name;
}

std::optional<std::string> prepend_label(std::string_view label, std::string_view rest) {
  if (label.empty() || label.size() > kLabelMax || !is_text(label) || 1 + label.size() + rest.size() > kNameMax) {
    return std::nullopt;
  }
  std::string name;
  append_label(name, label);
  name += rest;
  return name;
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
      append_text_byte(text, c);
    }
    text += '.';
  }
  return text.empty() ? "." : text;
}

}  // namespace dnssd
