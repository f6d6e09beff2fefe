// SPDX-License-Identifier: MIT
// What Avahi is not to note of a response. Both ways into it are functions that the library has under Avahi's own names, so that the
// dynamic linker gives them to Avahi. Where the linker finds Avahi's own instead (in a program that loads the library while it
// runs), Avahi notes everything, which costs time and is otherwise no matter.
//
//   - Avahi looks at each record with avahi_key_is_pattern and leaves out those whose key is a pattern ("any type", "any class"). Here
//     it says so of the pointers that are kept by the library (pointers.h) as well.
//   - Avahi tells each record to avahi_response_scheduler_incoming, which compares it with all those of the last half second, so that
//     what another host has just said is not said again (RFC 6762 section 7.4): with two thousand services that came at once, a
//     third of all processor time. Who publishes nothing says nothing.
#pragma once

namespace dnssd {

struct Server;

// Scope in which Avahi handles a response that `server` has got, which publishes nothing; null: one of which nothing is withheld.
struct Withholding {
  explicit Withholding(const Server* server);
  ~Withholding();
  Withholding(const Withholding&) = delete;
  Withholding& operator=(const Withholding&) = delete;
};

}  // namespace dnssd
