// SPDX-License-Identifier: MIT
// Host addresses: which of them may leave their link, and look-ups of a host by its name. (The answers to an instance's
// address queries come in through callback_ServiceQueryRecord, proxy.h.)
#pragma once

#include <cstdint>
#include <span>

using Ipv4Bytes = std::span<const std::uint8_t, 4>;  // network order
using Ipv6Bytes = std::span<const std::uint8_t, 16>;

// 169.254.0.0/16 (RFC 3927): means nothing on another link.
bool is_ipv4_link_local(Ipv4Bytes address);

// fe80::/10 (RFC 4291 section 2.5.6).
bool is_ipv6_link_local(Ipv6Bytes address);

// Look-ups over nss-mdns, a facility of the library; the proxy itself gets its addresses from the instances' queries.
// The first address of the host that is not link-local is written to address_out (4 or 16 bytes, network order). 0, or
// 1 and address_out untouched when there is none, or no nss-mdns. A lack of memory ends the process (20).
int hostname_to_ip(const char* hostname, std::uint8_t* address_out);
int hostname_to_ipv6(const char* hostname, std::uint8_t* address_out);
