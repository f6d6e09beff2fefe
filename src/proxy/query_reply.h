// SPDX-License-Identifier: MIT
// One reply to a query for addresses or for a subtype's PTR records.
#pragma once

#include <dns_sd.h>

#include <cstdint>

// The arguments of callback_ServiceQueryRecord; valid while that runs. Handlers need the last four and sdRef, the trace
// all.
struct QueryReply {
  DNSServiceRef sdRef;
  DNSServiceFlags flags;
  std::uint32_t interfaceIndex;
  DNSServiceErrorType errorCode;
  const char* fullname;
  std::uint16_t rrclass;
  std::uint32_t ttl;
  std::uint16_t rrtype;
  std::uint16_t rdlen;
  const void* rdata;
  void* context;  // of the query
};

// Traces the reply at LOG_DEBUG under the name of the function that handles it.
void trace_query_reply(const char* function, const QueryReply& reply);
