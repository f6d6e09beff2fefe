#include "dnssd/crowd.h"

#include <linux/filter.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "dnssd/server.h"

namespace dnssd {
namespace {

// A service with both addresses is four publications: a hundred services make a crowd, and half of that no longer is one.
constexpr unsigned kCrowdBegins = 400;
constexpr unsigned kCrowdEnds = 200;

// Drops probes, queries with records in their authority section (RFC 6762 section 8.1), that this machine has sent. The
// filter sees a datagram from its UDP header on: the DNS flags stand at 10, the authority count at 16.
void attach_filter(int fd) {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned>(SKF_AD_OFF + SKF_AD_PKTTYPE)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_LOOPBACK, 0, 4),
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 10),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, 0x8000, 2, 0),
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 16),
      BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, 0, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, 0xFFFFFFFF),
      BPF_STMT(BPF_RET | BPF_K, 0),
  };
  const sock_fprog filter{sizeof program / sizeof program[0], program};
  setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}

void detach_filter(int fd) {
  const int unused = 0;
  setsockopt(fd, SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof unused);
}

void loop_back(const Server& server, int yes) {
  setsockopt(server.sockets[AVAHI_PROTO_INET], IPPROTO_IP, IP_MULTICAST_LOOP, &yes, sizeof yes);
  setsockopt(server.sockets[AVAHI_PROTO_INET6], IPPROTO_IPV6, IPV6_MULTICAST_LOOP, &yes, sizeof yes);
}

}  // namespace

void crowd_review(Server& server) {
  const bool is_crowded = server.publications > (server.is_crowded ? kCrowdEnds : kCrowdBegins);
  if (is_crowded == server.is_crowded)
    return;
  server.is_crowded = is_crowded;
  for (const int fd : server.sockets) {
    if (fd >= 0 && is_crowded)
      attach_filter(fd);
    if (fd >= 0 && !is_crowded)
      detach_filter(fd);
  }
}

QuietScope::QuietScope(const Server& server) : quiet_(server.is_crowded && server.lookups == 0 ? &server : nullptr) {
  if (quiet_ != nullptr)
    loop_back(*quiet_, 0);
}

QuietScope::~QuietScope() {
  if (quiet_ != nullptr)
    loop_back(*quiet_, 1);
}

}  // namespace dnssd
