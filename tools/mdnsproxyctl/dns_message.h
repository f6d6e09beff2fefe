// SPDX-License-Identifier: MIT
// As much of DNS messages (RFC 1035 section 4) as questions of our own need. Bytes come from strangers.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

// Labels without the root, as plain bytes.
using DnsName = std::vector<std::string>;

enum class DnsType : std::uint16_t { a = 1, ptr = 12, txt = 16, aaaa = 28, srv = 33 };

struct DnsQuestion {
  DnsName name;
  DnsType type;
};

struct DnsRecord {
  DnsName name;
  std::uint16_t type;
  DnsName target;                // of a PTR or SRV record
  std::uint16_t port = 0;        // of an SRV record
  std::string address;           // of an A or AAAA record, as text
  bool through_gateway = false;  // of a TXT record: it holds the entry that a gateway adds
  std::string sender = {};       // the address of the host that said it, where that is known
};

// "a.b" as labels; dots separate and nothing is escaped. For names of types, not of services.
DnsName dns_name(const std::string& dotted);

// Whether two names are the same, letters of either case (RFC 1035 section 2.3.3).
bool same_name(const DnsName& one, const DnsName& other);

// A query of standard form with these questions. A label longer than 63 bytes is cut.
std::vector<std::uint8_t> encode_query(std::uint16_t id, const std::vector<DnsQuestion>& questions);

// The records of a response, of all sections; those of other types, and those that are not well formed, are left out.
// Nothing when it is no response. A record that cannot be read ends the reading.
std::optional<std::vector<DnsRecord>> decode_response(std::span<const std::uint8_t> message);
