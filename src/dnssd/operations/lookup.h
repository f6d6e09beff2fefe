// SPDX-License-Identifier: MIT
// The operations that look something up.
#pragma once

#include "dnssd/state/engine.h"

namespace dnssd {

void resolve_start(Operation& operation);

// If the handle is that of a resolve, reports new data. To be called after a batch of events, since one change of data
// may take several events.
void resolve_review(Handle handle);

// Updates the live answers by the event: an added or renewed one becomes the newest, a removed one is taken out.
void answers_change(std::vector<Answer>& answers, const mdns::Event& event);

}  // namespace dnssd
