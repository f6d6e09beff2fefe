// SPDX-License-Identifier: MIT
#include "dnssd/state/engine.h"

namespace dnssd {

Engine* gEngine = nullptr;

Operation* operation_find(Handle handle) {
  if (gEngine == nullptr) {
    return nullptr;
  }
  const auto found = gEngine->operations.find(handle);
  return found == gEngine->operations.end() ? nullptr : found->second.get();
}

mdns::Link& interface_link(Interface& interface) {
  interface.is_touched = true;
  return *interface.link;
}

}  // namespace dnssd
