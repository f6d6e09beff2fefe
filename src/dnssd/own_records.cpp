// SPDX-License-Identifier: MIT
#include "dnssd/own_records.h"

#include <optional>

#include "dnssd/canonical_record.h"
#include "dnssd/message_reader.h"
#include "dnssd/operations.h"

namespace dnssd {
namespace {

// Far longer than an answer waits to be sent, and, on a busy machine, to be read.
constexpr std::int64_t kRememberedFor = 10'000'000;  // microseconds

bool is_among(const OwnRecords& own, const CanonicalRecord& record) {
  const RecordHead& head = record.head;
  const auto found = own.records.find(record_hash(record));
  return (head.rrclass & ~unsigned{kCacheFlushBit}) == AVAHI_DNS_CLASS_IN && found != own.records.end() &&
         found->second.ttl == head.ttl;
}

void forget_withdrawn(OwnRecords& own, std::int64_t until) {
  while (!own.withdrawn.empty() && own.withdrawn.front().first <= until) {
    const auto found = own.records.find(own.withdrawn.front().second);
    if (found != own.records.end() && found->second.publications == 0) {
      own.records.erase(found);
    }
    own.withdrawn.pop_front();
  }
}

}  // namespace

bool own_records_add(OwnRecords& own, AvahiRecord& record) {
  forget_withdrawn(own, monotonic_now() - kRememberedFor);
  const std::optional<std::uint64_t> hash = record_hash(record);
  if (!hash) {
    return false;
  }
  const auto [found, is_new] = own.records.try_emplace(*hash);
  found->second.ttl = record.ttl;
  return ++found->second.publications == 1 && !is_new;
}

void own_records_remove(OwnRecords& own, AvahiRecord& record) {
  const std::int64_t now = monotonic_now();
  forget_withdrawn(own, now - kRememberedFor);
  const std::optional<std::uint64_t> hash = record_hash(record);
  const auto found = hash ? own.records.find(*hash) : own.records.end();
  if (found != own.records.end() && found->second.publications > 0 && --found->second.publications == 0) {
    own.withdrawn.emplace_back(now, *hash);
  }
}

bool own_records_say(const OwnRecords& own, std::span<const std::uint8_t> message) {
  MessageReader reader{message};
  const std::optional<MessageHead> head = read_message_head(reader);
  const bool is_response = head && (head->flags & (kResponseBit | kOpcodeAndRcodeBits)) == kResponseBit && head->answers != 0;
  if (own.records.empty() || !is_response || head->questions != 0 || head->authorities != 0) {
    return false;
  }
  for (unsigned left = unsigned{head->answers} + head->additionals; left > 0; --left) {
    const std::optional<CanonicalRecord> record = read_canonical_record(reader);
    if (!record || !is_among(own, *record)) {
      return false;
    }
  }
  return true;
}

}  // namespace dnssd
