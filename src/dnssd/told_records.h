// SPDX-License-Identifier: MIT
// What a lookup has told as new, and not yet as gone.
#pragma once

#include <avahi-common/address.h>
#include <avahi-core/rr.h>

#include <vector>

namespace dnssd {

struct ToldRecord {
  AvahiProtocol protocol = AVAHI_PROTO_UNSPEC;
  AvahiRecord* record = nullptr;  // one reference, owned
  bool is_confirmed = true;       // by the record browser that runs
};

using ToldRecords = std::vector<ToldRecord>;

// Whether the record has been told; it is confirmed then, with the lifetime that it has now.
bool told_confirm(ToldRecords& told, AvahiProtocol protocol, AvahiRecord* record);

// False, and nothing has happened, when there are very many already: what is told of a name and type that so many share is not worth
// remembering.
bool told_add(ToldRecords& told, AvahiProtocol protocol, AvahiRecord* record);

// Whether it was there.
bool told_remove(ToldRecords& told, AvahiProtocol protocol, AvahiRecord* record);

// Another record browser begins: none of them is confirmed.
void told_doubt(ToldRecords& told);

// Takes those out that are not confirmed. The caller releases their records.
ToldRecords told_take_unconfirmed(ToldRecords& told);

// Releases all of them.
void told_forget(ToldRecords& told);

}  // namespace dnssd
