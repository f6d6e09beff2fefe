// SPDX-License-Identifier: MIT
#include "dnssd/withheld.h"

#include <avahi-common/defs.h>
#include <avahi-core/rr.h>
#include <dlfcn.h>

#include "dnssd/pointers.h"

namespace dnssd {
namespace {

const Server* gWithholding = nullptr;

bool is_withheld(const AvahiKey& key) {
  return gWithholding != nullptr && key.type == AVAHI_DNS_TYPE_PTR && key.clazz == AVAHI_DNS_CLASS_IN &&
         pointers_are_kept(*gWithholding, key.name);
}

bool is_anything_withheld() { return gWithholding != nullptr; }

}  // namespace

Withholding::Withholding(const Server* server) { gWithholding = server; }
Withholding::~Withholding() { gWithholding = nullptr; }

}  // namespace dnssd

// Declared in none of Avahi's headers that are installed.
extern "C" {
struct AvahiResponseScheduler;
int avahi_key_is_pattern(const AvahiKey* key);
void avahi_response_scheduler_incoming(AvahiResponseScheduler* scheduler, AvahiRecord* record, int flush_cache);
}

extern "C" int avahi_key_is_pattern(const AvahiKey* key) {
  return key->type == AVAHI_DNS_TYPE_ANY || key->clazz == AVAHI_DNS_CLASS_ANY || dnssd::is_withheld(*key);
}

extern "C" void avahi_response_scheduler_incoming(AvahiResponseScheduler* scheduler, AvahiRecord* record, int flush_cache) {
  using Function = void (*)(AvahiResponseScheduler*, AvahiRecord*, int);
  static const auto avahis = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "avahi_response_scheduler_incoming"));
  if (!dnssd::is_anything_withheld() && avahis != nullptr) {
    avahis(scheduler, record, flush_cache);
  }
}
