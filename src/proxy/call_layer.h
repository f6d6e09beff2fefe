// SPDX-License-Identifier: MIT
// The DNS-SD calls that start an operation or change a record, each with one trace of its arguments at LOG_DEBUG.
//
// Arguments and result are those of the DNS-SD function of the same name, both unchanged; what a refusal means is the
// caller's decision. DNSServiceRefDeallocate, which needs no trace, is called directly.
#pragma once

#include <dns_sd.h>

#include <cstdint>

// For "%p" of a reference or a record.
inline const void* as_pointer(const void* pointer) { return pointer; }

// `context` must be the rule's BridgeContext: the trace shows its interfaces.
DNSServiceErrorType MyDNSServiceBrowse(DNSServiceRef* sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                       const char* regtype, const char* domain, DNSServiceBrowseReply callBack,
                                       void* context);

DNSServiceErrorType MyDNSServiceResolve(DNSServiceRef* sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                        const char* name, const char* regtype, const char* domain,
                                        DNSServiceResolveReply callBack, void* context);

DNSServiceErrorType MyDNSServiceQueryRecord(DNSServiceRef* sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                            const char* fullname, std::uint16_t rrtype, std::uint16_t rrclass,
                                            DNSServiceQueryRecordReply callBack, void* context);

// `port` in network byte order. The trace shows it unconverted, and txtRecord as a text: it must hold a zero byte at
// its end.
DNSServiceErrorType MyDNSServiceRegister(DNSServiceRef* sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                         const char* name, const char* regtype, const char* domain, const char* host,
                                         std::uint16_t port, std::uint16_t txtLen, const void* txtRecord,
                                         DNSServiceRegisterReply callBack, void* context);

DNSServiceErrorType MyDNSServiceRegisterRecord(DNSServiceRef sdRef, DNSRecordRef* RecordRef, DNSServiceFlags flags,
                                               std::uint32_t interfaceIndex, const char* fullname, std::uint16_t rrtype,
                                               std::uint16_t rrclass, std::uint16_t rdlen, const void* rdata,
                                               std::uint32_t ttl, DNSServiceRegisterRecordReply callBack,
                                               void* context);

DNSServiceErrorType MyDNSServiceRemoveRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef, DNSServiceFlags flags);

DNSServiceErrorType MyDNSServiceUpdateRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef, DNSServiceFlags flags,
                                             std::uint16_t rdlen, const void* rdata, std::uint32_t ttl);
