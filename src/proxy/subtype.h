// SPDX-License-Identifier: MIT
// The subtype pointer of an instance, re-announced on if_to.
#pragma once

#include <dns_sd.h>

#include <cstdint>

// One answer to an instance's subtype query; `context` is its subtype_query_context. The answer that names the instance is
// registered on if_to and ends the query; every other is logged and ignored.
void process_queryrecord_PTR(DNSServiceRef sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                             DNSServiceErrorType errorCode, const char* fullname, std::uint16_t rrtype, std::uint16_t rrclass,
                             std::uint16_t rdlen, const void* rdata, std::uint32_t ttl, void* context);
