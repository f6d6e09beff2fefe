// SPDX-License-Identifier: MIT
// Two connected datagram sockets that no network is needed for; what is sent on `near` arrives at `far`.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <string_view>

namespace dnssd {

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

}  // namespace dnssd
