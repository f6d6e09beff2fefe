// SPDX-License-Identifier: MIT
// sem_wait and sem_post as they are, recorded. A wait that would never end, since one thread alone could end it, aborts
// the process instead and says so on standard error.
#pragma once

#include <string>
#include <vector>

namespace fake_semaphore {

// Every call since reset on one of the daemon's semaphores, in order: "wait gRulesSemaphore", "post gRulesSemaphore".
const std::vector<std::string>& calls();

void reset();

}  // namespace fake_semaphore
