// SPDX-License-Identifier: MIT
// The service itself, registered on if_to once its host has an address there.
#pragma once

#include <dns_sd.h>

#include <string_view>

struct Addr_query_context;
struct ResponderContext;

// The TXT entry, length byte first, that marks what a proxy has forwarded already: it stands first in every proxied TXT
// record, and an instance that carries it is not forwarded again.
inline constexpr std::string_view kVendorEntry = "\rvender=Zenmor";

// How a refused record registration is reported, address and subtype records alike.
inline constexpr const char* kRegisterRecordRefused =
    "callback_ServiceRegisterRecord(): FAIL: MyDNSServiceRegisterRecord(sdref_registerrecord) call failed: %ld";

// Registers the resolved instance on its rule's if_to with `flags` and the shared connection's, and stores
// reg_service_ref (its reply: callback_ServiceRegister). A refusal is reported and leaves reg_service_ref null. A lack
// of memory ends the process (20).
void register_proxied_instance(ResponderContext* service_context, const Addr_query_context* result,
                               DNSServiceFlags flags);
