// SPDX-License-Identifier: MIT
#include "mdns/state/owned_record.h"

#include <algorithm>

namespace mdns {

Time latest_multicast(const OwnedRecord& record, Protocols protocols) {
  return std::max(protocols & kIpv4 ? record.multicast_at[0] : kLongAgo,
                  protocols & kIpv6 ? record.multicast_at[1] : kLongAgo);
}

Time rrset_multicast_at(const OwnedRecord& record, Protocols protocols, Time before) {
  Time last = latest_multicast(record, protocols);
  if (record.is_unique && record.type != kTypeNsec) {
    for (const OwnedRecord* other : record.owner->records) {
      const Time at = latest_multicast(*other, protocols);
      if (share_rrset(record, *other) && other->holders > 0 && at < before) {
        last = std::max(last, at);
      }
    }
  }
  return last;
}

bool was_multicast_since(const OwnedRecord& record, Protocols protocols, Time time) {
  return std::ranges::all_of(kEachProtocol, [&](Protocols protocol) {
    return (protocols & protocol) == 0 || record.multicast_at[index_of(protocol)] > time;
  });
}

bool zone_has_unique(const NameEntry& name, std::uint16_t type) {
  return name.owned != nullptr && name.owned->state == NameState::owned &&
         std::ranges::any_of(name.owned->records, [type](const OwnedRecord* record) {
           return record->type == type && record->is_unique && record->is_live;
         });
}

}  // namespace mdns
