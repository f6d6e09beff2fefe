// SPDX-License-Identifier: MIT
#include "dnssd/crowd.h"

#include <linux/filter.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <span>

#include "dnssd/server.h"

namespace dnssd {
namespace {

// A service with both addresses is four publications: a hundred services make a crowd, and half of that no longer is one.
constexpr unsigned kCrowdBegins = 400;
constexpr unsigned kCrowdEnds = 200;

// A filter sees a datagram from its UDP header on: the DNS flags stand at 10, the first bit telling a response; the number of
// records in the authority section, which only a probe has in a query, stands at 16.
constexpr unsigned kFlagsAt = 10;
constexpr unsigned kAuthorityAt = 16;
constexpr unsigned kWhereFrom = static_cast<unsigned>(SKF_AD_OFF + SKF_AD_PKTTYPE);

// Takes responses, and questions of other machines that are no probes.
sock_filter kUnpublished[] = {
    BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kFlagsAt),
    BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, 0x8000, 4, 0),
    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kWhereFrom),
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_LOOPBACK, 3, 0),
    BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kAuthorityAt),
    BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, 0, 1, 0),
    BPF_STMT(BPF_RET | BPF_K, 0xFFFFFFFF),
    BPF_STMT(BPF_RET | BPF_K, 0),
};

// Takes everything but this machine's probes.
sock_filter kCrowded[] = {
    BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kFlagsAt),
    BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, 0x8000, 4, 0),
    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kWhereFrom),
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_LOOPBACK, 0, 2),
    BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kAuthorityAt),
    BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, 0, 1, 0),
    BPF_STMT(BPF_RET | BPF_K, 0xFFFFFFFF),
    BPF_STMT(BPF_RET | BPF_K, 0),
};

void attach_filter(int fd, std::span<sock_filter> program) {
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}

void detach_filter(int fd) {
  const int unused = 0;
  setsockopt(fd, SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof unused);
}

void listen_with(int fd, Ear ear) {
  switch (ear) {
    case Ear::unpublished:
      attach_filter(fd, kUnpublished);
      break;
    case Ear::ordinary:
      detach_filter(fd);
      break;
    case Ear::crowded:
      attach_filter(fd, kCrowded);
      break;
  }
}

Ear ear_for(const Server& server) {
  if (server.publications == 0) {
    return Ear::unpublished;
  }
  const bool is_crowded = server.publications > (server.ear == Ear::crowded ? kCrowdEnds : kCrowdBegins);
  return is_crowded ? Ear::crowded : Ear::ordinary;
}

}  // namespace

void crowd_review(Server& server) {
  const Ear ear = ear_for(server);
  if (ear == server.ear) {
    return;
  }
  server.ear = ear;
  for (Gate& gate : server.gates) {
    gate_set_publishing(gate, ear != Ear::unpublished);
  }
  lookups_wake(server);
  for (const int fd : server.sockets) {
    if (fd >= 0) {
      listen_with(fd, ear);
    }
  }
}

void crowd_begin(int fd) { listen_with(fd, Ear::unpublished); }

}  // namespace dnssd
