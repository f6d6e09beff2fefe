// SPDX-License-Identifier: MIT
// The two connections to the responder.
#pragma once

#include <dns_sd.h>

// Null before main_init has made them. Never cleared.
extern DNSServiceRef gDNSServiceRef_Shared;          // browses, resolves, queries, service registrations
extern DNSServiceRef gDNSServiceRef_RegisterRecord;  // individually registered records
