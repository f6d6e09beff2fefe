// SPDX-License-Identifier: MIT
// Records that the former process has left to this one (operations/handover.h).
#pragma once

#include "dnssd/state/engine.h"

namespace dnssd {

// Publishes the records of the former process, if it has left a valid file; kept until some seconds after
// inheritance_serve.
void inheritance_take();

// To be called by DNSServiceProcessResult: at the first call, plans the end of inherited records.
void inheritance_serve();

// To be called before something is registered as unique under `name`: withdraws the inherited records of the name,
// which the registration replaces as an update.
void inheritance_replace(Interface& interface, const std::string& name);

// Host::number that the former process used for the host on the interface; 1: none is known.
unsigned inheritance_number(const Interface& interface, const std::string& host);

}  // namespace dnssd
