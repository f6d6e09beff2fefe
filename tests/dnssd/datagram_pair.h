// SPDX-License-Identifier: MIT
// Two datagram sockets of this machine's own: what is sent on `near` arrives at `far`, and has arrived when Send returns.
#pragma once

#include <gtest/gtest.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "dnssd/multicast.h"

namespace dnssd {

// One of the loopback's addresses that nobody else uses.
inline constexpr std::uint32_t kResponderAddress = INADDR_LOOPBACK + 0x0509;

// For the kernel to deliver what was sent, which it leaves to a thread of its own when it is busy.
inline constexpr std::chrono::seconds kDeliveryPatience(20);

// Connected ones that no network is needed for.
struct DatagramPair {
  DatagramPair() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends), 0);
    near = ends[0];
    far = ends[1];
  }
  ~DatagramPair() {
    close(near);
    close(far);
  }
  DatagramPair(const DatagramPair&) = delete;
  DatagramPair& operator=(const DatagramPair&) = delete;

  void Send(std::string_view bytes) const {
    EXPECT_EQ(send(near, bytes.data(), bytes.size(), MSG_DONTWAIT), static_cast<ssize_t>(bytes.size()));
  }
  // Whether something has arrived, which is taken.
  bool Takes() const {
    char byte = 0;
    return recv(far, &byte, sizeof byte, MSG_DONTWAIT) >= 0;
  }

  int near = -1;
  int far = -1;
};

// Nonblocking; -1 when it cannot be had.
inline int open_udp_socket(std::uint32_t host, std::uint16_t port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int yes = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &yes, sizeof yes);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(host);
  EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return fd;
}

// As those of hosts on a link: a datagram's sender is a responder, or a stranger, who sends from another port. There is room for
// thousands of datagrams; those beyond it are lost.
struct UdpPair {
  UdpPair() {
    const int room = 4 * 1024 * 1024;
    setsockopt(far, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
  }
  ~UdpPair() {
    close(near);
    close(stranger);
    close(far);
  }
  UdpPair(const UdpPair&) = delete;
  UdpPair& operator=(const UdpPair&) = delete;

  void Send(std::string_view bytes) const { SendFrom(near, bytes); }
  void SendFromStranger(std::string_view bytes) const { SendFrom(stranger, bytes); }

  bool IsEmpty() const {
    char byte = 0;
    return recv(far, &byte, sizeof byte, MSG_DONTWAIT | MSG_PEEK) < 0;
  }

  int near = open_udp_socket(kResponderAddress, kMulticastDnsPort);
  int stranger = open_udp_socket(INADDR_LOOPBACK, 0);
  int far = open_udp_socket(INADDR_LOOPBACK, 0);

 private:
  using State = std::array<std::uint32_t, SK_MEMINFO_VARS>;

  // Of the socket `far`: what occupies it, and what has been lost for want of room.
  State TheState() const {
    State state{};
    socklen_t size = sizeof state;
    EXPECT_EQ(getsockopt(far, SOL_SOCKET, SO_MEMINFO, state.data(), &size), 0);
    return state;
  }

  bool HasChanged(const State& before) const {
    const State now = TheState();
    return now[SK_MEMINFO_RMEM_ALLOC] != before[SK_MEMINFO_RMEM_ALLOC] || now[SK_MEMINFO_DROPS] != before[SK_MEMINFO_DROPS];
  }

  void SendFrom(int fd, std::string_view bytes) const {
    const State before = TheState();
    sockaddr_in to{};
    socklen_t size = sizeof to;
    getsockname(far, reinterpret_cast<sockaddr*>(&to), &size);
    ASSERT_EQ(sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), size),
              static_cast<ssize_t>(bytes.size()));
    const auto end = std::chrono::steady_clock::now() + kDeliveryPatience;
    bool is_late = false;
    while (!HasChanged(before)) {
      ASSERT_FALSE(is_late) << "lost on its way";
      is_late = std::chrono::steady_clock::now() > end;
    }
  }
};

}  // namespace dnssd
