// SPDX-License-Identifier: MIT
#include "mdnsproxy-check/interfaces.h"

#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <memory>

namespace {

std::vector<std::string> names_here() {
  std::vector<std::string> names;
  const std::unique_ptr<struct if_nameindex, void (*)(struct if_nameindex*)> list(if_nameindex(), &if_freenameindex);
  for (const struct if_nameindex* each = list.get(); each != nullptr && each->if_index != 0; ++each) {
    names.emplace_back(each->if_name);
  }
  return names;
}

}  // namespace

InterfaceFault fault_of(const std::string& name, unsigned flags) {
  if ((flags & IFF_LOOPBACK) != 0) {
    return {name, name + " is the loopback interface, and no other host is on it",
            "name an interface that leads to a link"};
  }
  if ((flags & IFF_MULTICAST) == 0) {
    return {name, name + " cannot multicast: no service is seen or announced on it", "name another interface"};
  }
  if ((flags & IFF_UP) == 0 || (flags & IFF_RUNNING) == 0) {
    return {name, name + " is down: nothing is seen or announced on it until it comes up",
            "ip link set " + name + " up, or see to its cable"};
  }
  return {name, "", ""};
}

Interfaces interfaces_here() {
  Interfaces here = {names_here(), {}};
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    return here;
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, &freeifaddrs);
  for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
    const InterfaceFault fault = fault_of(each->ifa_name, each->ifa_flags);
    const auto is_same = [&](const InterfaceFault& known) { return known.name == fault.name; };
    if (!fault.message.empty() && std::none_of(here.faults.begin(), here.faults.end(), is_same)) {
      here.faults.push_back(fault);
    }
  }
  return here;
}
