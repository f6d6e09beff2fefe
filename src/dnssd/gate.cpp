// SPDX-License-Identifier: MIT
#include "dnssd/gate.h"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstddef>

#include "dnssd/poll.h"

namespace dnssd {
namespace {

// The burst: two thousand services of five records, announced twice, and once more in answer to a question. The rate: many
// times what such a link says in the long run.
constexpr Rate kIntakeRate{40'000, 2'000};

// Packets that are thrown away in one go, so that a flood is kept up with.
constexpr int kThrownAwayPerPass = 128;

constexpr std::size_t kHeaderBytes = 12;  // RFC 1035 section 4.1.1
constexpr int kRecordBytesMin = 11;       // section 4.1.3: a root name, type, class, TTL, length

// The records in the next datagram: as many as it claims, if they could fit. 1 for what is no message. Notes a question.
int records_in_next(Gate& gate, int fd) {
  std::array<unsigned char, kHeaderBytes> header{};
  int size = 0;
  const ssize_t read = recv(fd, header.data(), header.size(), MSG_PEEK | MSG_DONTWAIT);
  if (read < static_cast<ssize_t>(header.size()) || ioctl(fd, FIONREAD, &size) != 0) {
    return 1;
  }
  const bool is_response = (header[2] & 0x80) != 0;
  if (!is_response) {
    gate.asked_at = monotonic_now();
  }
  int claimed = 1;
  for (std::size_t at = 4; at < kHeaderBytes; at += 2) {
    claimed += header[at] * 256 + header[at + 1];
  }
  return std::min(claimed, 1 + size / kRecordBytesMin);
}

void throw_away(int fd) {
  char byte;
  for (int i = 0; i < kThrownAwayPerPass; ++i) {
    if (recv(fd, &byte, sizeof byte, MSG_DONTWAIT) < 0) {
      return;
    }
  }
}

}  // namespace

void gate_open(Gate& gate, AvahiWatchCallback callback, void* userdata) {
  gate.callback = callback;
  gate.userdata = userdata;
  gate.allowance = {kIntakeRate.burst, monotonic_now()};
}

void gate_pass(AvahiWatch* watch, int fd, AvahiWatchEvent events, void* userdata) {
  Gate& gate = *static_cast<Gate*>(userdata);
  allowance_grow(gate.allowance, kIntakeRate);
  if (gate.allowance.left <= 0 && (events & AVAHI_WATCH_IN)) {
    throw_away(fd);
    return;
  }
  gate.allowance.left -= records_in_next(gate, fd);
  gate.callback(watch, fd, events, gate.userdata);
}

}  // namespace dnssd
