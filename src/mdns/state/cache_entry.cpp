// SPDX-License-Identifier: MIT
#include "mdns/state/cache_entry.h"

namespace mdns {

bool cache_has_unique_answer(const RRset& rrset) {
  // How many of the newest records are looked at; only a hostile host sends a unique RRset with more.
  constexpr int kAnswersLookedAt = 8;
  auto entry = rrset.entries.rbegin();
  for (int left = kAnswersLookedAt; left > 0 && entry != rrset.entries.rend() && entry->is_unique; --left, ++entry) {
    if (entry->limit != Limit::goodbye) {
      return true;
    }
  }
  return false;
}

}  // namespace mdns
