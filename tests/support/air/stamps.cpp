// SPDX-License-Identifier: MIT
#include "stamps.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace air {
namespace {

constexpr std::size_t kPrefix = 8, kAddress = 16;
constexpr double kMicro = 1e6;
// Microseconds since 1970: those of the years 2001 to 2286. No other address that is met in a test is among them.
constexpr std::uint64_t kEarliest = 1'000'000'000'000'000, kLatest = 10'000'000'000'000'000;
constexpr char kEntry[] = "at=";

}  // namespace

std::string stamped_entry(double at) {
  char text[40];
  std::snprintf(text, sizeof text, "%s%.6f", kEntry, at);
  return text;
}

std::optional<double> stamp_in_txt(std::string_view rdata) {
  while (!rdata.empty()) {
    const std::size_t length = static_cast<unsigned char>(rdata[0]);
    const std::string_view entry = rdata.substr(1, length);
    if (entry.starts_with(kEntry))
      return std::strtod(std::string(entry.substr(sizeof kEntry - 1)).c_str(), nullptr);
    rdata.remove_prefix(std::min(rdata.size(), length + 1));
  }
  return std::nullopt;
}

std::string stamped_address(std::string_view rdata, double at) {
  std::string stamped(rdata.substr(0, kPrefix));
  const std::uint64_t stamp = static_cast<std::uint64_t>(at * kMicro);
  for (int shift = 56; shift >= 0; shift -= 8)
    stamped += static_cast<char>(stamp >> shift & 255);
  return stamped;
}

std::optional<double> stamp_in_address(std::string_view rdata) {
  if (rdata.size() != kAddress)
    return std::nullopt;
  std::uint64_t stamp = 0;
  for (const char byte : rdata.substr(kPrefix))
    stamp = stamp << 8 | static_cast<unsigned char>(byte);
  if (stamp < kEarliest || stamp > kLatest)
    return std::nullopt;
  return static_cast<double>(stamp) / kMicro;
}

}  // namespace air
