// SPDX-License-Identifier: MIT
// DNS names in the three forms that meet here: the presentation format of dns_sd.h (a dot and a backslash escaped by a
// backslash, bytes up to 32 as \DDD, UTF-8 as it is), Avahi's texts (every byte that is not a letter, digit, '-' or '_'
// escaped), and uncompressed wire format. All of them pass through `Name`, the list of plain labels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace dnssd {

// RFC 1035 section 2.3.4: a label holds 1 to 63 bytes, a name 255 bytes on the wire with its length bytes.
inline constexpr std::size_t kLabelMax = 63;
inline constexpr std::size_t kWireNameMax = 255;

// One DNS name, root label left out. Labels hold plain bytes, never a zero byte: neither dns_sd.h nor Avahi could carry it.
struct Name {
  std::vector<std::string> labels;
};

// Reads presentation format (Avahi's texts are a form of it), with or without the trailing dot. Nothing on an empty
// label, a broken escape, a zero byte, or a name that RFC 1035 does not allow. "." and "" give the root.
std::optional<Name> parse_name(std::string_view text);

// A name of one plain label in front of another name; nothing when either is too long or `label` is empty.
std::optional<Name> prepend_label(std::string_view label, const Name& rest);

// The presentation format of dns_sd.h, with the trailing dot.
std::string name_to_text(const Name& name);

// Avahi's own escaping, without the trailing dot.
std::string name_to_avahi(const Name& name);

// Uncompressed wire format, with the terminating zero.
std::vector<std::uint8_t> name_to_wire(const Name& name);

// Whether `wire` is exactly one uncompressed name (no pointer, every length within the room that is left).
bool is_wire_name(std::span<const std::uint8_t> wire);

// DNS compares the letters A to Z without their case, and nothing else (RFC 6762 section 16).
constexpr char fold_case(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// A key under which two names are the same exactly if DNS takes them for the same (RFC 6762 section 16: letters A to Z
// are compared without their case). Works on any text.
std::string fold_case(std::string_view text);

// Whether the last label of `name` is `label`, in any case.
bool ends_with_label(const Name& name, std::string_view label);

}  // namespace dnssd
