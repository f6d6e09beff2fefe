// SPDX-License-Identifier: MIT
#include "dnssd/interface.h"

#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include "dnssd/engine.h"
#include "dnssd/followers.h"
#include "dnssd/references.h"

namespace dnssd {
namespace {

// An idle interface stays this long, so that a caller that releases one operation and starts the next keeps its cache.
constexpr mdns::Time kIdleMax = 10 * mdns::kSecond;

// The goodbyes of thousands of services take more than one packet's time; a process that ends does not wait longer than this.
constexpr mdns::Time kWithdrawMax = 3 * mdns::kSecond;

void send_datagrams(Interface& interface) {
  for (const mdns::Datagram& datagram : mdns::link_take_datagrams(*interface.link)) {
    sockets_send(interface, datagram);
  }
}

// Events may start or end publications of this interface, which is then touched again.
void serve(Interface& interface, mdns::Time now) {
  interface.is_touched = false;
  mdns::link_advance(*interface.link, now);
  send_datagrams(interface);
  for (const mdns::Event& event : mdns::link_take_events(*interface.link)) {
    operation_pass(event);
  }
  for (const Handle handle : std::exchange(gEngine->touched, {})) {
    operation_review(handle);
  }
}

bool is_idle(const Interface& interface, mdns::Time now) { return interface.operations == 0 && interface.idle_until <= now; }

void sleep_until(mdns::Time time) {
  timespec until{};
  until.tv_sec = time / mdns::kSecond;
  until.tv_nsec = time % mdns::kSecond * 1000;
  clock_nanosleep(CLOCK_BOOTTIME, TIMER_ABSTIME, &until, nullptr);
}

}  // namespace

bool is_within(const std::array<std::uint8_t, 16>& address, const Prefix& prefix) {
  const std::size_t bytes = prefix.length / 8;
  const unsigned rest = prefix.length % 8;
  if (!std::equal(address.begin(), address.begin() + static_cast<std::ptrdiff_t>(bytes), prefix.address.begin())) {
    return false;
  }
  return rest == 0 || (address[bytes] ^ prefix.address[bytes]) >> (8 - rest) == 0;
}

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
  made->idle_until = monotonic_now() + kIdleMax;
  const int error = sockets_open(*made);
  if (error != 0) {
    sockets_close(*made);
    return error == ENODEV ? kDNSServiceErr_BadInterfaceIndex : error == EPERM ? kDNSServiceErr_NoAuth : kErrServiceNotRunning;
  }
  link_monitor_read(*made);
  made->link = mdns::link_new(random_number(), made->protocols);
  *interface = made.get();
  gEngine->interfaces.emplace(index, std::move(made));
  return kDNSServiceErr_NoError;
}

void interface_use(Interface& interface) { ++interface.operations; }

void interface_unuse(Interface& interface) {
  --interface.operations;
  interface.idle_until = monotonic_now() + kIdleMax;
}

mdns::Link& interface_link(Interface& interface) {
  interface.is_touched = true;
  return *interface.link;
}

void interfaces_serve(mdns::Time now) {
  for (auto at = gEngine->interfaces.begin(); at != gEngine->interfaces.end();) {
    Interface& interface = *at->second;
    if (is_idle(interface, now)) {
      sockets_close(interface);
      at = gEngine->interfaces.erase(at);
      continue;
    }
    if (interface.is_touched || mdns::link_deadline(*interface.link) <= now) {
      serve(interface, now);
    }
    ++at;
  }
}

void interfaces_restart(mdns::Time now) {
  for (const auto& [index, interface] : gEngine->interfaces) {
    mdns::link_restart(interface_link(*interface), now, false);
  }
}

mdns::Time interfaces_deadline() {
  mdns::Time earliest = mdns::kNever;
  for (const auto& [index, interface] : gEngine->interfaces) {
    const mdns::Time link = interface->is_touched ? 0 : mdns::link_deadline(*interface->link);
    const mdns::Time idle = interface->operations == 0 ? interface->idle_until : mdns::kNever;
    earliest = std::min({earliest, link, idle});
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
      send_datagrams(*interface);
      next = std::min(next, mdns::link_deadline(*interface->link));
    }
    if (next > end) {
      return;
    }
    sleep_until(next);
    now = monotonic_now();
  }
}

}  // namespace dnssd
