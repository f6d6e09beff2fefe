// SPDX-License-Identifier: MIT
#include "dnssd/links/interfaces.h"

#include <net/if.h>
#include <sys/random.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "dnssd/links/link_monitor.h"
#include "dnssd/links/sockets.h"

namespace dnssd {
namespace {

// An idle interface stays this long, so that a caller that releases one operation and starts the next keeps its cache.
constexpr mdns::Time kIdleMax = 10 * mdns::kSecond;

// The goodbyes of thousands of services take more than one packet's time; a process that ends does not wait longer than
// this.
constexpr mdns::Time kWithdrawMax = 3 * mdns::kSecond;

// The time at which the interface is freed; kNever while it has operations.
mdns::Time idle_until(const Interface& interface) {
  return interface.operations == 0 ? interface.idle_since + kIdleMax : mdns::kNever;
}

// A random seed, which other hosts can neither predict nor share.
std::uint64_t random_number() {
  std::uint64_t number = 0;
  // Soon after the machine was switched on the kernel may have no randomness yet: then the clock serves.
  if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number) {
    number = static_cast<std::uint64_t>(monotonic_now()) * 0x9E3779B97F4A7C15 ^ static_cast<std::uint64_t>(getpid())
                                                                                    << 32;
  }
  return number;
}

}  // namespace

DNSServiceErrorType interface_get(std::uint32_t index, Interface** interface) {
  if (index == kDNSServiceInterfaceIndexAny || index == kDNSServiceInterfaceIndexLocalOnly) {
    return kDNSServiceErr_Unsupported;
  }
  const auto found = gEngine->interfaces.find(index);
  if (found != gEngine->interfaces.end()) {
    *interface = found->second.get();
    return kDNSServiceErr_NoError;
  }
  char name[IF_NAMESIZE];
  if (if_indextoname(index, name) == nullptr) {
    return kDNSServiceErr_BadInterfaceIndex;
  }
  auto made = std::make_unique<Interface>();
  made->index = index;
  made->name = name;
  const DNSServiceErrorType error = sockets_open(*made);
  if (error != kDNSServiceErr_NoError) {
    return error;
  }
  link_monitor_read(*made);
  made->link = mdns::link_new(random_number(), made->protocols);
  *interface = made.get();
  gEngine->interfaces.emplace(index, std::move(made));
  return kDNSServiceErr_NoError;
}

void interfaces_drop_idle(mdns::Time now) {
  std::erase_if(gEngine->interfaces, [now](const auto& entry) { return idle_until(*entry.second) <= now; });
}

mdns::Time interfaces_deadline() {
  mdns::Time earliest = mdns::kNever;
  for (const auto& [index, interface] : gEngine->interfaces) {
    const mdns::Time link = interface->is_touched ? 0 : mdns::link_deadline(*interface->link);
    earliest = std::min({earliest, link, idle_until(*interface)});
  }
  return earliest;
}

void interfaces_withdraw() {
  mdns::Time now = monotonic_now();
  const mdns::Time end = now + kWithdrawMax;
  for (const auto& [index, interface] : gEngine->interfaces) {
    mdns::link_withdraw_all(*interface->link, now);
  }
  while (now <= end) {
    mdns::Time next = mdns::kNever;
    for (const auto& [index, interface] : gEngine->interfaces) {
      mdns::link_advance(*interface->link, now);
      sockets_send(*interface);
      next = std::min(next, mdns::link_deadline(*interface->link));
    }
    if (next > end) {
      return;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(next - now));
    now = monotonic_now();
  }
}

}  // namespace dnssd
