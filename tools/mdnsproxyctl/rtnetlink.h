// SPDX-License-Identifier: MIT
// Questions to the kernel about one address (rtnetlink(7)), and the attributes of its answers. Body: rtmsg, ndmsg, ...
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "mdnsproxyctl/address.h"

using NetlinkBytes = std::span<const std::uint8_t>;

template <typename Body>
struct AddressQuestion {
  nlmsghdr header;
  Body body;
  rtattr attribute;
  std::uint8_t address[16];
};

// Asks with this message type for what there is about the address, which goes into the attribute of that type. The
// kernel's answer; empty when it cannot be asked.
template <typename Body>
std::vector<std::uint8_t> ask_kernel(std::uint16_t type, const Body& body, std::uint16_t attribute,
                                     const std::string& address) {
  const std::size_t size = is_ipv6(address) ? 16 : 4;
  AddressQuestion<Body> question = {};
  question.header.nlmsg_len = static_cast<std::uint32_t>(offsetof(AddressQuestion<Body>, address) + size);
  question.header.nlmsg_type = type;
  question.header.nlmsg_flags = NLM_F_REQUEST;
  question.body = body;
  question.attribute.rta_len = static_cast<std::uint16_t>(RTA_LENGTH(size));
  question.attribute.rta_type = attribute;
  inet_pton(family_of(address), address.c_str(), question.address);
  std::vector<std::uint8_t> answer(4096);
  const int netlink = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  const bool is_asked = netlink != -1 && send(netlink, &question, question.header.nlmsg_len, 0) >= 0;
  const ssize_t got = is_asked ? recv(netlink, answer.data(), answer.size(), 0) : -1;
  if (netlink != -1) {
    close(netlink);
  }
  answer.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return answer;
}

// The body of an answer of this message type. False: it is another one, or an error.
template <typename Body>
bool read_body(NetlinkBytes answer, std::uint16_t type, Body& body) {
  nlmsghdr header = {};
  if (answer.size() < NLMSG_LENGTH(sizeof body)) {
    return false;
  }
  std::memcpy(&header, answer.data(), sizeof header);
  std::memcpy(&body, answer.data() + NLMSG_HDRLEN, sizeof body);
  return header.nlmsg_type == type;
}

// The first attribute of that type behind the body; empty when there is none.
template <typename Body>
NetlinkBytes find_attribute(NetlinkBytes answer, std::uint16_t type) {
  rtattr attribute = {};
  for (std::size_t at = NLMSG_LENGTH(sizeof(Body)); at + sizeof attribute <= answer.size();
       at += RTA_ALIGN(attribute.rta_len)) {
    std::memcpy(&attribute, answer.data() + at, sizeof attribute);
    if (attribute.rta_len < sizeof attribute || attribute.rta_len > answer.size() - at) {
      break;
    }
    if (attribute.rta_type == type) {
      return answer.subspan(at + sizeof attribute, attribute.rta_len - sizeof attribute);
    }
  }
  return {};
}
