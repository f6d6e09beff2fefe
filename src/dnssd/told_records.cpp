// SPDX-License-Identifier: MIT
#include "dnssd/told_records.h"

#include <algorithm>

namespace dnssd {
namespace {

// Far more than a host has addresses; a list is still walked in no time.
constexpr std::size_t kToldMax = 64;

ToldRecords::iterator find(ToldRecords& told, AvahiProtocol protocol, AvahiRecord* record) {
  return std::find_if(told.begin(), told.end(), [&](const ToldRecord& one) {
    return one.protocol == protocol && avahi_record_equal_no_ttl(one.record, record) != 0;
  });
}

}  // namespace

bool told_confirm(ToldRecords& told, AvahiProtocol protocol, AvahiRecord* record) {
  const auto known = find(told, protocol, record);
  if (known == told.end()) {
    return false;
  }
  avahi_record_ref(record);
  avahi_record_unref(known->record);
  known->record = record;
  known->is_confirmed = true;
  return true;
}

bool told_add(ToldRecords& told, AvahiProtocol protocol, AvahiRecord* record) {
  if (told.size() >= kToldMax) {
    return false;
  }
  told.push_back({protocol, avahi_record_ref(record), true});
  return true;
}

bool told_remove(ToldRecords& told, AvahiProtocol protocol, AvahiRecord* record) {
  const auto known = find(told, protocol, record);
  if (known == told.end()) {
    return false;
  }
  avahi_record_unref(known->record);
  told.erase(known);
  return true;
}

void told_doubt(ToldRecords& told) {
  for (ToldRecord& one : told) {
    one.is_confirmed = false;
  }
}

ToldRecords told_take_unconfirmed(ToldRecords& told) {
  const auto first = std::stable_partition(told.begin(), told.end(), [](const ToldRecord& one) { return one.is_confirmed; });
  ToldRecords taken(first, told.end());
  told.erase(first, told.end());
  return taken;
}

void told_forget(ToldRecords& told) {
  for (const ToldRecord& one : told) {
    avahi_record_unref(one.record);
  }
  told.clear();
}

}  // namespace dnssd
