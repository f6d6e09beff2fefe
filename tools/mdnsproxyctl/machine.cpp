// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/machine.h"

#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <fstream>
#include <memory>

#include "mdnsproxyctl/address.h"

namespace {

MachineLink& link_of(std::vector<MachineLink>& links, const std::string& name) {
  for (MachineLink& link : links) {
    if (link.name == name) {
      return link;
    }
  }
  links.push_back({name, static_cast<int>(if_nametoindex(name.c_str())), false, false, {}});
  return links.back();
}

}  // namespace

std::vector<MachineLink> machine_links() {
  std::vector<MachineLink> links;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    return links;
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, &freeifaddrs);
  for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
    MachineLink& link = link_of(links, each->ifa_name);
    link.up = (each->ifa_flags & IFF_UP) != 0 && (each->ifa_flags & IFF_RUNNING) != 0;
    link.multicast = (each->ifa_flags & IFF_MULTICAST) != 0 && (each->ifa_flags & IFF_LOOPBACK) == 0;
    if (const std::string text = address_text(each->ifa_addr); !text.empty()) {
      link.addresses.push_back(text);
    }
  }
  return links;
}

const MachineLink* find_link(const std::vector<MachineLink>& links, const std::string& name) {
  for (const MachineLink& link : links) {
    if (link.name == name) {
      return &link;
    }
  }
  return nullptr;
}

bool is_of_this_machine(const std::vector<MachineLink>& links, const std::string& address) {
  return std::ranges::any_of(links, [&](const MachineLink& each) {
    return std::ranges::find(each.addresses, address) != each.addresses.end();
  });
}

// "PID (NAME) STATE ...", where the name may hold anything, parentheses too.
std::optional<char> process_state(std::uint32_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t end = line.rfind(") ");
  return end != std::string::npos && end + 2 < line.size() ? std::optional(line[end + 2]) : std::nullopt;
}
