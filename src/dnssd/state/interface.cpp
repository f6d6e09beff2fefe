// SPDX-License-Identifier: MIT
#include "dnssd/state/interface.h"

namespace dnssd {

bool is_within(const std::array<std::uint8_t, 16>& address, const Prefix& prefix) {
  for (std::size_t i = 0; i < address.size(); ++i) {
    if (((address[i] ^ prefix.address[i]) & prefix.netmask[i]) != 0) {
      return false;
    }
  }
  return true;
}

}  // namespace dnssd
