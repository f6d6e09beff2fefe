// SPDX-License-Identifier: MIT
// What a lookup has told as new, and not yet as gone: of a unique record, which has one owner, who has a few of them. Of more than
// that the newest are remembered. (A host that changes its addresses while something of it is announced every second has each
// remembered by Avahi until there is a pause: what is to go a second after it was replaced, RFC 6762 section 10.2, is given
// another second each time. Two thousand services on such a host would each remember all of them here.)
#pragma once

#include <avahi-common/address.h>
#include <avahi-core/rr.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace dnssd {

struct ToldRecord {
  AvahiRecord* record = nullptr;  // one reference, owned
  AvahiProtocol protocol = AVAHI_PROTO_UNSPEC;
  bool is_confirmed = true;  // by the record browser that runs
};

using ToldRecords = std::vector<ToldRecord>;  // the newest last

// Over one protocol: more than a host has addresses; a list is still walked in no time.
inline constexpr std::size_t kToldMax = 16;

// Whether the record has been told; it is confirmed then, with the lifetime that it has now.
bool told_confirm(ToldRecords& told, AvahiProtocol protocol, AvahiRecord* record);

// Adds the record, which is not among them, as the newest. What has to leave for it is taken out, and the caller releases its
// record: the oldest over that protocol, one that is not confirmed first.
std::optional<ToldRecord> told_add(ToldRecords& told, AvahiProtocol protocol, AvahiRecord* record);

// Whether there are as many over the protocol as are remembered.
bool told_is_full(const ToldRecords& told, AvahiProtocol protocol);

// Whether it was there.
bool told_remove(ToldRecords& told, AvahiProtocol protocol, AvahiRecord* record);

// Another record browser begins: none of them is confirmed.
void told_doubt(ToldRecords& told);

// Takes those out that are not confirmed. The caller releases their records.
ToldRecords told_take_unconfirmed(ToldRecords& told);

// Releases all of them.
void told_forget(ToldRecords& told);

}  // namespace dnssd
