// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/neighbours.h"

#include <arpa/inet.h>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

// A question for one entry (rtnetlink(7)).
struct NeighbourQuestion {
  nlmsghdr header;
  ndmsg neighbour;
  rtattr attribute;
  std::uint8_t address[16];
};

NeighbourQuestion neighbour_question(const std::string& address, int link_index) {
  const int family = address.find(':') != std::string::npos ? AF_INET6 : AF_INET;
  const unsigned short size = family == AF_INET6 ? 16 : 4;
  NeighbourQuestion question = {};
  question.header.nlmsg_len = static_cast<std::uint32_t>(offsetof(NeighbourQuestion, address)) + size;
  question.header.nlmsg_type = RTM_GETNEIGH;
  question.header.nlmsg_flags = NLM_F_REQUEST;
  question.neighbour.ndm_family = static_cast<unsigned char>(family);
  question.neighbour.ndm_ifindex = link_index;
  question.attribute.rta_len = static_cast<unsigned short>(RTA_LENGTH(size));
  question.attribute.rta_type = NDA_DST;
  inet_pton(family, address.c_str(), question.address);
  return question;
}

std::string hardware_text(const std::uint8_t* bytes, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%s%02x", i > 0 ? ":" : "", bytes[i]);
    text += digits;
  }
  return text;
}

// The attribute NDA_LLADDR of the kernel's answer; empty when it is an error, or has none.
std::string hardware_address_in(const std::uint8_t* answer, std::size_t size) {
  nlmsghdr header = {};
  if (size < NLMSG_LENGTH(sizeof(ndmsg))) {
    return "";
  }
  std::memcpy(&header, answer, sizeof header);
  if (header.nlmsg_type != RTM_NEWNEIGH) {
    return "";
  }
  std::size_t at = NLMSG_LENGTH(sizeof(ndmsg));
  rtattr attribute = {};
  while (at + sizeof attribute <= size) {
    std::memcpy(&attribute, answer + at, sizeof attribute);
    if (attribute.rta_len < sizeof attribute || attribute.rta_len > size - at) {
      break;
    }
    if (attribute.rta_type == NDA_LLADDR) {
      return hardware_text(answer + at + sizeof attribute, attribute.rta_len - sizeof attribute);
    }
    at += RTA_ALIGN(attribute.rta_len);
  }
  return "";
}

}  // namespace

std::string hardware_address(const std::string& address, int link_index) {
  const int netlink = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  if (netlink == -1) {
    return "";
  }
  const NeighbourQuestion question = neighbour_question(address, link_index);
  std::uint8_t answer[4096];
  ssize_t size = -1;
  if (send(netlink, &question, question.header.nlmsg_len, 0) >= 0) {
    size = recv(netlink, answer, sizeof answer, 0);
  }
  close(netlink);
  return size > 0 ? hardware_address_in(answer, static_cast<std::size_t>(size)) : "";
}
