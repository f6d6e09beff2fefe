// SPDX-License-Identifier: MIT
// Records that Avahi is not to remember: the pointers that are kept here (pointers.h).
//
// Avahi looks at each record of a response with avahi_key_is_pattern and leaves out those whose key is a pattern ("any type", "any
// class"). The library has that function under the same name, so that the dynamic linker gives it to Avahi, and it says the same
// as Avahi's but for those pointers while a response is handled that concerns nobody else. Where the linker finds Avahi's own
// instead (in a program that loads the library while it runs), Avahi remembers them as well, which costs time and is otherwise
// no matter.
#pragma once

namespace dnssd {

struct Server;

// Scope in which Avahi handles a response that `server` has got; null: one of which nothing is to be withheld.
struct Withholding {
  explicit Withholding(const Server* server);
  ~Withholding();
  Withholding(const Withholding&) = delete;
  Withholding& operator=(const Withholding&) = delete;
};

}  // namespace dnssd
