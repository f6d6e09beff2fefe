// SPDX-License-Identifier: MIT
// The kernel reports changes of interfaces by netlink. Their state is then read again, and differences go to the links.
#include "dnssd/links/link_monitor.h"

#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "dnssd/links/sockets.h"
#include "dnssd/state/engine.h"

namespace dnssd {
namespace {

// Up, with a carrier, and not dormant. (IFF_RUNNING means the same, but is set up to a second later than packets pass.)
constexpr unsigned kLowerUp = 0x10000;  // of linux/if.h, which does not go together with net/if.h
constexpr unsigned kDormant = 0x20000;

bool is_live(unsigned flags) { return (flags & (IFF_UP | kLowerUp | kDormant)) == (IFF_UP | kLowerUp); }

// The addresses of the machine, with the flags of their interfaces; none when the system call fails.
struct Addresses {
  ifaddrs* first = nullptr;
  bool are_known = getifaddrs(&first) == 0;
  ~Addresses() { freeifaddrs(first); }
};

// Whether the address can be used: an IPv6 address is tentative until duplicate address detection (RFC 4862 section
// 5.4) is over, and a socket cannot be bound to it.
bool is_usable(const sockaddr* address) {
  if (address->sa_family == AF_INET) {
    return true;
  }
  const int fd = socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool is_bound = fd >= 0 && bind(fd, address, sizeof(sockaddr_in6)) == 0;
  if (fd >= 0) {
    close(fd);
  }
  return is_bound;
}

void note_addresses(Interface& interface, const Addresses& addresses) {
  char name[IF_NAMESIZE] = "";
  if_indextoname(interface.index, name);  // the interface may have another name by now, or be gone
  interface.protocols = mdns::kNoProtocol;
  interface.prefixes.clear();
  for (const ifaddrs* entry = addresses.first; entry != nullptr; entry = entry->ifa_next) {
    const mdns::Endpoint address = to_endpoint(entry->ifa_addr);
    const bool is_open = interface.sockets[mdns::index_of(address.protocol)].watch.fd >= 0;
    if (address.protocol == mdns::kNoProtocol || !is_live(entry->ifa_flags) ||
        std::strcmp(entry->ifa_name, name) != 0 || !is_open || !is_usable(entry->ifa_addr)) {
      continue;
    }
    interface.protocols |= address.protocol;
    interface.prefixes.push_back({address.protocol, address.address, to_endpoint(entry->ifa_netmask).address});
  }
}

void review_interface(Interface& interface, const Addresses& addresses, bool was_down) {
  const mdns::Protocols before = interface.protocols;
  const std::vector<Prefix> old_prefixes = std::move(interface.prefixes);
  note_addresses(interface, addresses);
  const mdns::Time now = monotonic_now();
  const mdns::Protocols kept = before & interface.protocols;
  if (interface.protocols != kept) {
    sockets_join(interface);
  }
  if (interface.protocols != before) {
    mdns::link_set_protocols(interface_link(interface), now, interface.protocols);
  }
  // If IPv4 has stayed and none of its former addresses is there any more, this may be another network. (IPv6 always
  // has its link-local address, and its prefixes come and go beside it.)
  const auto is_kept_ipv4 = [&](const Prefix& old) {
    return old.protocol == mdns::kIpv4 && std::ranges::count(interface.prefixes, old) != 0;
  };
  const bool has_moved = (kept & mdns::kIpv4) != 0 && std::ranges::none_of(old_prefixes, is_kept_ipv4);
  if (kept != 0 && (was_down || has_moved)) {
    mdns::link_restart(interface_link(interface), now, was_down);
  }
}

// Reads the kernel's messages. Returns the interfaces that were not live in one of them: one may be live again by now.
std::set<std::uint32_t> read_interfaces_down() {
  std::set<std::uint32_t> down;
  alignas(nlmsghdr) char buffer[16384];
  ssize_t size;
  while ((size = recv(gEngine->link_monitor.fd, buffer, sizeof buffer, MSG_DONTWAIT)) > 0 || errno == ENOBUFS) {
    auto left = static_cast<unsigned>(std::max<ssize_t>(size, 0));  // ENOBUFS: some messages were lost
    for (const auto* at = reinterpret_cast<const nlmsghdr*>(buffer); NLMSG_OK(at, left); at = NLMSG_NEXT(at, left)) {
      const bool is_link = at->nlmsg_type == RTM_NEWLINK || at->nlmsg_type == RTM_DELLINK;
      const auto* link = static_cast<const ifinfomsg*>(NLMSG_DATA(at));
      if (is_link && at->nlmsg_len >= NLMSG_LENGTH(sizeof *link) &&
          (at->nlmsg_type == RTM_DELLINK || !is_live(link->ifi_flags))) {
        down.insert(static_cast<std::uint32_t>(link->ifi_index));
      }
    }
  }
  return down;
}

void netlink_readable(void*) {
  const std::set<std::uint32_t> down = read_interfaces_down();
  const Addresses addresses;
  for (const auto& [index, interface] : gEngine->interfaces) {
    if (addresses.are_known) {
      review_interface(*interface, addresses, down.contains(index));
    }
  }
}

}  // namespace

void link_monitor_open() {
  Watch& watch = gEngine->link_monitor;
  watch = {socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE), netlink_readable, nullptr};
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
  if (poll_add(gEngine->poll, watch) &&
      bind(watch.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    poll_remove(gEngine->poll, watch);
  }
}

void link_monitor_read(Interface& interface) { note_addresses(interface, Addresses{}); }

}  // namespace dnssd
