// SPDX-License-Identifier: MIT
// Hears the goodbyes of browsed instances itself.
//
// A lookup keeps a pointer for the second that RFC 6762 section 10.1 leaves for others to rescue it: a caller that then withdraws the
// instance on another link is always more than a second late. So each interface that is browsed has an ear beside (group_ear.h), and
// an instance whose goodbye nobody contradicts for three quarters of a second is reported gone then. One that turns up again
// afterwards, while the lookup still takes it for present, is reported found again. A goodbye that the ear misses is reported when the
// lookup has noticed it.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "dnssd/dnssd.h"

namespace dnssd {

struct Watcher;

// What has said goodbye over a protocol, and is still present to the browse or its lookup.
struct Departure {
  Watcher* watcher = nullptr;
  Name target;
  unsigned protocol = 0;          // 1: IPv4, 2: IPv6
  bool told = false;              // to the browse
  bool is_back = false;           // may have been heard alive since it was told
  AvahiTimeout* timer = nullptr;  // owned; runs until it is told, and while it is back
};

using DepartureKey = std::pair<std::string, unsigned>;  // the folded target, the protocol

// One browse.
struct Watcher {
  Operation* operation = nullptr;
  Name asked;
  std::map<DepartureKey, std::unique_ptr<Departure>> departures;
};

// A server's.
struct Departures {
  std::map<const Browse*, std::unique_ptr<Watcher>> watchers;
};

// Listens for goodbyes of what `asked` points to, until departures_unwatch. Without a socket the browse is as late as its lookup.
void departures_watch(Operation& operation, const Name& asked);

// The browse ends. Nothing happens for one that is not watched.
void departures_unwatch(const Browse& browse);

// The lookup has dropped the record, too.
void departures_confirm(Operation& operation, unsigned protocol, const Name& target);

// browse.cpp: whether the instance that `target` names is present over the protocol (1: IPv4, 2: IPv6), and its coming and
// going over it.
bool browse_has(const Browse& browse, unsigned protocol, const Name& target);
void browse_found(Operation& operation, unsigned protocol, const Name& target);
void browse_lost(Operation& operation, unsigned protocol, const Name& target);

}  // namespace dnssd
