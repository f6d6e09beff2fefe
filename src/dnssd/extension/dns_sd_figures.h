// SPDX-License-Identifier: MIT
// What has passed over the links that libdns_sd.so.1 works on. This is no part of the usual interface: a program that
// also runs on other libraries declares the function weak, and looks whether it is there.
#pragma once

#include <stddef.h>  // NOLINT(modernize-deprecated-headers): for C, too
#include <stdint.h>  // NOLINT(modernize-deprecated-headers)

#if defined(__cplusplus)
extern "C" {
#endif

enum { kDNSSDFiguresSiblings = 4 };

// An address of another host. The bytes are in network order; those that an IPv4 address leaves over are zero.
struct dns_sd_host {
  uint8_t family;  // 4, 6, or 0 for none
  uint8_t address[16];
};

// Numbers count from when the library began to use the interface.
struct dns_sd_figures {
  uint64_t received;   // datagrams of others
  uint64_t ignored;    // of these, beyond what one host may say
  uint64_t lost;       // datagrams that the system had no room for; known when the next one arrives
  uint64_t sent;       // datagrams
  uint64_t conflicts;  // names that turned out to be another host's
  uint32_t interface_index;
  // Who said within the last hour what this process publishes there, which other gateways do, as a rule; the first have
  // a family.
  struct dns_sd_host siblings[kDNSSDFiguresSiblings];
};

// Fills in the figures of each interface in use, by index, up to `room` of them, and returns how many it has filled in.
// Makes no system call but for reading a clock; like all functions of dns_sd.h it must not run at the same time as
// another one.
size_t dns_sd_link_figures(struct dns_sd_figures* figures, size_t room);

#if defined(__cplusplus)
}
#endif
