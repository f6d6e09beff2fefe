// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/question.h"

#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "mdnsproxyctl/address.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint16_t kPort = 5353;
constexpr std::size_t kQuestionsInPacket = 8;
constexpr std::size_t kLargestMessage = 9000;
constexpr std::size_t kMostRecords = 4096;
constexpr int kHopLimit = 255;

SocketAddress prepare4(int socket, unsigned link_index) {
  ip_mreqn by = {};
  by.imr_ifindex = static_cast<int>(link_index);
  const int on = 1;
  setsockopt(socket, IPPROTO_IP, IP_MULTICAST_IF, &by, sizeof by);
  setsockopt(socket, IPPROTO_IP, IP_MULTICAST_TTL, &kHopLimit, sizeof kHopLimit);
  setsockopt(socket, IPPROTO_IP, IP_PKTINFO, &on, sizeof on);
  return socket_address("224.0.0.251", kPort);
}

SocketAddress prepare6(int socket, unsigned link_index) {
  const int on = 1;
  setsockopt(socket, IPPROTO_IPV6, IPV6_MULTICAST_IF, &link_index, sizeof link_index);
  setsockopt(socket, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, &kHopLimit, sizeof kHopLimit);
  setsockopt(socket, IPPROTO_IPV6, IPV6_RECVPKTINFO, &on, sizeof on);
  return socket_address("ff02::fb", kPort, link_index);
}

std::uint16_t port_of(const sockaddr_storage& address) {
  return address.ss_family == AF_INET6 ? ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port)
                                       : ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

// The interface that a datagram came in by; 0: it does not say.
unsigned interface_of(msghdr& header) {
  for (cmsghdr* each = CMSG_FIRSTHDR(&header); each != nullptr; each = CMSG_NXTHDR(&header, each)) {
    if (each->cmsg_level == IPPROTO_IP && each->cmsg_type == IP_PKTINFO) {
      in_pktinfo info = {};
      std::memcpy(&info, CMSG_DATA(each), sizeof info);
      return static_cast<unsigned>(info.ipi_ifindex);
    }
    if (each->cmsg_level == IPPROTO_IPV6 && each->cmsg_type == IPV6_PKTINFO) {
      in6_pktinfo info = {};
      std::memcpy(&info, CMSG_DATA(each), sizeof info);
      return info.ipi6_ifindex;
    }
  }
  return 0;
}

struct Datagram {
  std::vector<std::uint8_t> message;
  std::string sender;
};

// A socket that asks on one link. Where the protocol is not to be had it does nothing.
class Asker {
 public:
  Asker(int family, const MachineLink& link) : socket_(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    link_index_ = static_cast<unsigned>(link.index);
    if (socket_ != -1) {
      group_ = family == AF_INET ? prepare4(socket_, link_index_) : prepare6(socket_, link_index_);
    }
  }
  ~Asker() {
    if (socket_ != -1) {
      close(socket_);
    }
  }
  Asker(const Asker&) = delete;
  Asker& operator=(const Asker&) = delete;

  int socket_number() const { return socket_; }

  void send(const std::vector<std::uint8_t>& message) const {
    if (socket_ != -1) {
      sendto(socket_, message.data(), message.size(), 0, group_.get(), group_.size);
    }
  }

  // The next datagram, when it came from port 5353 by the link or from this machine itself; else an empty one.
  Datagram receive() const {
    std::vector<std::uint8_t> message(kLargestMessage);
    sockaddr_storage sender = {};
    alignas(cmsghdr) char control[256];
    iovec room = {message.data(), message.size()};
    msghdr header = {};
    header.msg_name = &sender;
    header.msg_namelen = sizeof sender;
    header.msg_iov = &room;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(socket_, &header, MSG_DONTWAIT);
    const unsigned arrived_by = size > 0 ? interface_of(header) : 0;
    const bool believed = port_of(sender) == kPort && (arrived_by == link_index_ || arrived_by == if_nametoindex("lo"));
    message.resize(size > 0 && believed ? static_cast<std::size_t>(size) : 0);
    return {message, address_text(reinterpret_cast<const sockaddr*>(&sender))};
  }

 private:
  int socket_;
  unsigned link_index_ = 0;
  SocketAddress group_;
};

std::uint16_t random_id() {
  std::uint16_t id = 0;
  return getrandom(&id, sizeof id, 0) == sizeof id ? id : std::uint16_t{0};
}

void send_all(const Asker& asker, const std::vector<DnsQuestion>& questions) {
  for (std::size_t first = 0; first < questions.size(); first += kQuestionsInPacket) {
    const auto begin = questions.begin() + static_cast<std::ptrdiff_t>(first);
    const auto end =
        questions.begin() + static_cast<std::ptrdiff_t>(std::min(first + kQuestionsInPacket, questions.size()));
    asker.send(encode_query(random_id(), {begin, end}));
  }
}

void receive_from(const Asker& asker, std::vector<DnsRecord>& records) {
  const Datagram datagram = asker.receive();
  const auto answer = decode_response(datagram.message);
  if (!answer || records.size() >= kMostRecords) {
    return;
  }
  for (const DnsRecord& each : *answer) {
    records.push_back(each);
    records.back().sender = datagram.sender;
  }
}

}  // namespace

std::vector<DnsRecord> ask(const MachineLink& link, const std::vector<DnsQuestion>& questions,
                           const std::function<bool(const std::vector<DnsRecord>&)>& enough, int milliseconds) {
  const Asker over4(AF_INET, link);
  const Asker over6(AF_INET6, link);
  std::vector<DnsRecord> records;
  const Clock::time_point begin = Clock::now();
  bool repeated = false;
  send_all(over4, questions);
  send_all(over6, questions);
  while (!enough(records)) {
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
    if (passed >= milliseconds) {
      break;
    }
    if (!repeated && passed >= milliseconds / 3) {
      repeated = true;
      send_all(over4, questions);
      send_all(over6, questions);
    }
    const int until = repeated ? milliseconds : milliseconds / 3;
    pollfd sockets[] = {{over4.socket_number(), POLLIN, 0}, {over6.socket_number(), POLLIN, 0}};
    if (poll(sockets, 2, std::max(1, until - static_cast<int>(passed))) > 0) {
      for (const Asker* each : {&over4, &over6}) {
        if (sockets[each == &over6 ? 1 : 0].revents != 0) {
          receive_from(*each, records);
        }
      }
    }
  }
  return records;
}
