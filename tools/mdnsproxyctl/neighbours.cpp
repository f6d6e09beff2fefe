// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/neighbours.h"

#include <linux/neighbour.h>

#include <cstdio>

#include "mdnsproxyctl/rtnetlink.h"

std::string hardware_address(const std::string& address, int link_index) {
  ndmsg neighbour = {};
  neighbour.ndm_family = static_cast<unsigned char>(family_of(address));
  neighbour.ndm_ifindex = link_index;
  const std::vector<std::uint8_t> answer = ask_kernel(RTM_GETNEIGH, neighbour, NDA_DST, address);
  std::string text;
  if (read_body(answer, RTM_NEWNEIGH, neighbour)) {
    for (const std::uint8_t byte : find_attribute<ndmsg>(answer, NDA_LLADDR)) {
      char digits[4];
      std::snprintf(digits, sizeof digits, "%s%02x", text.empty() ? "" : ":", byte);
      text += digits;
    }
  }
  return text;
}
