// SPDX-License-Identifier: MIT
#include "dnssd/withheld.h"

#include <avahi-common/defs.h>
#include <avahi-core/rr.h>

#include "dnssd/pointers.h"

namespace dnssd {
namespace {

const Server* gWithholding = nullptr;

bool is_withheld(const AvahiKey& key) {
  return gWithholding != nullptr && key.type == AVAHI_DNS_TYPE_PTR && key.clazz == AVAHI_DNS_CLASS_IN &&
         pointers_are_kept(*gWithholding, key.name);
}

}  // namespace

Withholding::Withholding(const Server* server) { gWithholding = server; }
Withholding::~Withholding() { gWithholding = nullptr; }

}  // namespace dnssd

// Declared in none of Avahi's headers that are installed.
extern "C" int avahi_key_is_pattern(const AvahiKey* key);

extern "C" int avahi_key_is_pattern(const AvahiKey* key) {
  return key->type == AVAHI_DNS_TYPE_ANY || key->clazz == AVAHI_DNS_CLASS_ANY || dnssd::is_withheld(*key);
}
