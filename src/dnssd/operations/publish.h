// SPDX-License-Identifier: MIT
// The operations that publish. `ttl` 0 stands for the usual one.
#pragma once

#include "dnssd/state/engine.h"

namespace dnssd {

// `host` is the name of the host that the service names.
void registration_start(Operation& operation, const std::string& host);

// Announces new TXT data under the same name. kDNSServiceErr_BadState when it has failed, kDNSServiceErr_BadParam when
// `txt` is no TXT data.
DNSServiceErrorType registration_update(Operation& operation, const std::string& txt, std::uint32_t ttl);

// Publishes Record::data, which is publishable.
void record_start(Operation& operation, const std::string& name, mdns::Claim claim);

// The same errors as registration_update; kDNSServiceErr_NameConflict when another operation holds other data as
// unique.
DNSServiceErrorType record_update(Operation& operation, const std::string& rdata, std::uint32_t ttl);

}  // namespace dnssd
