// SPDX-License-Identifier: MIT
// What the functions of dns_sd.h that start an operation have in common.
#pragma once

#include "dnssd/dnssd.h"
#include "dnssd/server.h"

namespace dnssd {

// Makes an operation on an interface, shared as `flags` say. kDNSServiceErr_BadReference when it is to share what is no
// connection; the errors of engine_open and server_get. Nothing has been made then.
DNSServiceErrorType begin_operation(DNSServiceRef* ref, DNSServiceFlags flags, std::uint32_t interface_index, void* context,
                                    decltype(Operation::part)&& part, Operation** operation);

// Hands the caller its reference, or releases the operation if it could not be started. Passes `error` on.
DNSServiceErrorType finish_operation(DNSServiceRef* ref, Operation* operation, DNSServiceErrorType error);

}  // namespace dnssd
