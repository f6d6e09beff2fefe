// SPDX-License-Identifier: MIT
#include "dnssd/base/publishable.h"

#include "mdns/wire/record.h"

namespace dnssd {

bool is_publishable(std::uint16_t rrtype, const std::string& rdata) {
  // RFC 6762 section 17 holds a message to 9000 bytes; more rdata than this could never be sent.
  constexpr std::size_t kRdataMax = 8192;
  return !rdata.empty() && rdata.size() <= kRdataMax && mdns::is_rdata(rrtype, rdata);
}

}  // namespace dnssd
