// SPDX-License-Identifier: MIT
#include "runtime/connections.h"

DNSServiceRef gDNSServiceRef_Shared = nullptr;
DNSServiceRef gDNSServiceRef_RegisterRecord = nullptr;
