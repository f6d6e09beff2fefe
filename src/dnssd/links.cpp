// SPDX-License-Identifier: MIT
#include "dnssd/links.h"

#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include "dnssd/publications.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// Bits of Server::link: the link is up, with an address of that protocol.
constexpr unsigned kIpv4 = 1;
constexpr unsigned kIpv6 = 2;

int gDescriptor = -1;

struct AddressList {
  ifaddrs* first = nullptr;
  ~AddressList() {
    if (first != nullptr) {
      freeifaddrs(first);
    }
  }
};

unsigned link_of(const Server& server, const ifaddrs* first) {
  constexpr unsigned kLive = IFF_UP | IFF_RUNNING;
  unsigned link = 0;
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    const bool is_live = (entry->ifa_flags & kLive) == kLive;
    if (!is_live || entry->ifa_addr == nullptr || server.interface_name != entry->ifa_name) {
      continue;
    }
    if (entry->ifa_addr->sa_family == AF_INET) {
      link |= kIpv4;
    }
    if (entry->ifa_addr->sa_family == AF_INET6) {
      link |= kIpv6;
    }
  }
  return link;
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

void review(Server& server, const ifaddrs* first) {
  const unsigned before = server.link;
  server.link = link_of(server, first);
  // Avahi forgets what it heard on a link that goes, and takes in what it did not when an address comes.
  for (Gate& gate : server.gates) {
    repeats_forget(gate.repeats);
  }
  lookups_wake(server);
  if (server.link & ~before) {
    begin_again(server);
  }
}

void drain(int fd) {
  char buffer[8192];
  while (recv(fd, buffer, sizeof buffer, MSG_DONTWAIT) > 0) {
  }
}

void something_changed(AvahiWatch*, int fd, AvahiWatchEvent, void*) {
  drain(fd);
  AddressList addresses;
  if (getifaddrs(&addresses.first) != 0) {
    return;
  }
  for (const auto& [index, server] : gEngine->servers) {
    review(*server, addresses.first);
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
    server.link = link_of(server, addresses.first);
  }
}

}  // namespace dnssd
