// SPDX-License-Identifier: MIT
#include "dnssd/told_records.h"

#include <algorithm>

namespace dnssd {
namespace {

ToldRecords::iterator find(ToldRecords& told, AvahiProtocol protocol, AvahiRecord* record) {
  return std::find_if(told.begin(), told.end(), [&](const ToldRecord& one) {
    return one.protocol == protocol && avahi_record_equal_no_ttl(one.record, record) != 0;
  });
}

// The first that leaves when there is no room over the protocol.
ToldRecords::iterator dispensable(ToldRecords& told, AvahiProtocol protocol) {
  const auto over = [&](bool is_confirmed) {
    return std::ranges::find_if(
        told, [&](const ToldRecord& one) { return one.protocol == protocol && one.is_confirmed == is_confirmed; });
  };
  const auto unconfirmed = over(false);
  return unconfirmed != told.end() ? unconfirmed : over(true);
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

std::optional<ToldRecord> told_add(ToldRecords& told, AvahiProtocol protocol, AvahiRecord* record) {
  std::optional<ToldRecord> gone;
  if (told_is_full(told, protocol)) {
    const auto leaves = dispensable(told, protocol);
    gone = *leaves;
    told.erase(leaves);
  }
  told.push_back({avahi_record_ref(record), protocol, true});
  return gone;
}

bool told_is_full(const ToldRecords& told, AvahiProtocol protocol) {
  const auto count = std::ranges::count_if(told, [&](const ToldRecord& one) { return one.protocol == protocol; });
  return static_cast<std::size_t>(count) >= kToldMax;
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
