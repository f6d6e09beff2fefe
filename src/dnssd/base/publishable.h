// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace dnssd {

// Whether a message can carry the record: well formed for its type, and neither empty nor too long.
bool is_publishable(std::uint16_t rrtype, const std::string& rdata);

}  // namespace dnssd
