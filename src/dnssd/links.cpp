// SPDX-License-Identifier: MIT
#include "dnssd/links.h"

#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>

#include "dnssd/publications.h"
#include "dnssd/senders.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// Bits of Server::link: the link is up, with an address of that protocol.
constexpr unsigned kIpv4 = 1;
constexpr unsigned kIpv6 = 2;

constexpr unsigned kLive = IFF_UP | IFF_RUNNING;

int gDescriptor = -1;

struct AddressList {
  ifaddrs* first = nullptr;
  ~AddressList() {
    if (first != nullptr) {
      freeifaddrs(first);
    }
  }
};

void note_link(Server& server, const ifaddrs* first) {
  server.link = 0;
  server.addresses.clear();
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    const bool is_live = (entry->ifa_flags & kLive) == kLive;
    if (!is_live || entry->ifa_addr == nullptr || server.interface_name != entry->ifa_name) {
      continue;
    }
    const int family = entry->ifa_addr->sa_family;
    if (family == AF_INET || family == AF_INET6) {
      server.link |= family == AF_INET ? kIpv4 : kIpv6;
      server.addresses.insert(address_bytes(*entry->ifa_addr));
    }
  }
}

void begin_again(const Server& server) {
  std::vector<Serial> serials;
  for (const auto& [serial, publication] : gEngine->publications) {
    if (publication->server == &server) {
      serials.push_back(serial);
    }
  }
  for (const Serial serial : serials) {
    Publication* publication = publication_find(serial);
    if (publication != nullptr) {
      publication_begin_again(*publication);
    }
  }
}

void review(Server& server, const ifaddrs* first, bool was_away, bool was_down) {
  const unsigned before = server.link;
  note_link(server, first);
  pointers_forget(server, was_down ? kIpv4 | kIpv6 : before & ~server.link);
  // Avahi forgets what it heard on a link that goes, and takes in what it did not when an address comes. Other news, such as the
  // lifetimes of addresses that each router advertisement renews, are none to it.
  if (was_away || server.link != before) {
    server_doubt_what_was_heard(server);
  }
  if (server.link & ~before) {
    begin_again(server);
  }
}

// What the kernel's messages say. A link may be away and back again before they are read.
struct News {
  std::set<std::uint32_t> away;  // interfaces that were not up, or lost an address
  std::set<std::uint32_t> down;  // those that were not up
  bool is_incomplete = false;    // there were more than the socket could hold
};

void note_message(News& news, const nlmsghdr& message) {
  const bool is_link = message.nlmsg_type == RTM_NEWLINK || message.nlmsg_type == RTM_DELLINK;
  if (is_link && message.nlmsg_len >= NLMSG_LENGTH(sizeof(ifinfomsg))) {
    const auto& link = *static_cast<const ifinfomsg*>(NLMSG_DATA(&message));
    if (message.nlmsg_type == RTM_DELLINK || (link.ifi_flags & kLive) != kLive) {
      news.away.insert(static_cast<std::uint32_t>(link.ifi_index));
      news.down.insert(static_cast<std::uint32_t>(link.ifi_index));
    }
  }
  if (message.nlmsg_type == RTM_DELADDR && message.nlmsg_len >= NLMSG_LENGTH(sizeof(ifaddrmsg))) {
    news.away.insert(static_cast<const ifaddrmsg*>(NLMSG_DATA(&message))->ifa_index);
  }
}

News read_news(int fd) {
  News news;
  alignas(nlmsghdr) char buffer[16384];
  for (;;) {
    const ssize_t size = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT | MSG_TRUNC);
    if (size <= 0) {
      news.is_incomplete = news.is_incomplete || (size < 0 && errno == ENOBUFS);
      return news;
    }
    news.is_incomplete = news.is_incomplete || size > static_cast<ssize_t>(sizeof buffer);
    auto left = static_cast<unsigned>(std::min<ssize_t>(size, sizeof buffer));
    for (const auto* at = reinterpret_cast<const nlmsghdr*>(buffer); NLMSG_OK(at, left); at = NLMSG_NEXT(at, left)) {
      note_message(news, *at);
    }
  }
}

void something_changed(AvahiWatch*, int fd, AvahiWatchEvent, void*) {
  const News news = read_news(fd);
  AddressList addresses;
  if (getifaddrs(&addresses.first) != 0) {
    return;
  }
  for (const auto& [index, server] : gEngine->servers) {
    review(*server, addresses.first, news.is_incomplete || news.away.contains(index), news.down.contains(index));
  }
}

}  // namespace

void links_open() {
  gDescriptor = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  if (gDescriptor < 0) {
    return;
  }
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
  const AvahiPoll api = poll_api(gEngine->poll);
  if (bind(gDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    gEngine->links = poll_watch_new(&api, gDescriptor, AVAHI_WATCH_IN, something_changed, nullptr);
  }
  if (gEngine->links == nullptr) {
    links_close();
  }
}

void links_close() {
  if (gEngine->links != nullptr) {
    poll_watch_free(gEngine->links);
  }
  if (gDescriptor >= 0) {
    close(gDescriptor);
  }
  gEngine->links = nullptr;
  gDescriptor = -1;
}

void links_note(Server& server) {
  AddressList addresses;
  if (getifaddrs(&addresses.first) == 0) {
    note_link(server, addresses.first);
  }
}

}  // namespace dnssd
