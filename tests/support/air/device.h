// SPDX-License-Identifier: MIT
// One of the announcer's devices: a host with one service, and its records.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "packet.h"

namespace air {

// What all devices of an announcer have in common.
struct Kind {
  std::vector<std::string> types = {};  // names on the wire
  std::string addresses = {};           // "4", "6" or "46": the families of which each host has an address
  std::string link = {};                // its number, for the addresses
  std::size_t txt_size = 0;
  long hosts = 0;  // that they share in turn; 0: each is a host of its own
};

struct Device {
  std::size_t type = 0;
  std::string instance, host;     // names on the wire
  std::string srv, txt, a, aaaa;  // rdata; an address that it does not have is empty
  bool live = false;
  double service_sent_at[2] = {0, 0}, host_sent_at[2] = {0, 0};  // when its records last went out, by protocol
};

// Whether it is the only service of its host.
inline bool has_own_host(const Kind& kind) { return kind.hosts == 0; }

// Device number `number`.
Device make_device(const Kind& kind, long number);

// It has other TXT data, or another IPv6 address, which bear that time (stamps.h).
void change_txt(const Kind& kind, Device& device, long number, double at);
void change_address(Device& device, double at);

// Writer::answer or Writer::additional.
using AddRecord = void (Writer::*)(const std::string&, std::uint16_t, std::uint16_t, std::uint32_t, std::string_view);

// Write its records, with a TTL of 0 for a goodbye.
void add_pointer(const Kind& kind, Writer& writer, const Device& device, bool goodbye);
void add_service(Writer& writer, const Device& device, AddRecord add, bool goodbye);
void add_addresses(Writer& writer, const Device& device, AddRecord add, bool goodbye);

}  // namespace air
