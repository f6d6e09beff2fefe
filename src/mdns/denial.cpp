// SPDX-License-Identifier: MIT
// NSEC records as multicast DNS has them (RFC 6762 section 6.1, RFC 4034 section 4.1): the name itself, then windows of bits,
// one for each type that the name has.
#include <algorithm>
#include <array>

#include "mdns/name.h"
#include "mdns/record.h"

namespace mdns {
namespace {

constexpr std::size_t kWindowHeader = 2;  // its number and its length
constexpr std::size_t kWindowMax = 32;    // bytes of bits
constexpr unsigned kTypesPerWindow = 256;

}  // namespace

bool denial_lists(std::string_view rdata, std::uint16_t type) {
  const std::size_t name = name_size(rdata);
  if (name == 0) {
    return true;
  }
  for (std::string_view windows = rdata.substr(name); windows.size() > kWindowHeader;) {
    const auto number = static_cast<std::uint8_t>(windows[0]);
    const auto length = static_cast<std::uint8_t>(windows[1]);
    if (length == 0 || length > kWindowMax || windows.size() < kWindowHeader + length) {
      return true;
    }
    const std::size_t byte = type % kTypesPerWindow / 8;
    if (number == type / kTypesPerWindow && byte < length) {
      return (static_cast<std::uint8_t>(windows[kWindowHeader + byte]) & (0x80u >> type % 8)) != 0;
    }
    windows.remove_prefix(kWindowHeader + length);
  }
  return false;
}

std::string denial_rdata(std::string_view name, std::span<const std::uint16_t> types) {
  std::array<unsigned char, kWindowMax> bits{};
  std::size_t length = 1;
  for (const std::uint16_t type : types) {
    if (type < kTypesPerWindow) {
      bits[type / 8] = static_cast<unsigned char>(bits[type / 8] | 0x80u >> type % 8);
      length = std::max<std::size_t>(length, type / 8 + 1u);
    }
  }
  std::string rdata(name);
  rdata += '\0';
  rdata += static_cast<char>(length);
  rdata.append(reinterpret_cast<const char*>(bits.data()), length);
  return rdata;
}

}  // namespace mdns
