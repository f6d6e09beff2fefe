// SPDX-License-Identifier: MIT
#include "mdns/exchange/sender.h"

#include <algorithm>

#include "mdns/exchange/announcer.h"
#include "mdns/exchange/prober.h"
#include "mdns/schedule/outbox.h"

namespace mdns {
namespace {

// When the next goodbye, probe or announcement is due.
Time next_due(const Link& link) {
  return std::min({link.announcer.goodbyes.next(), link.prober.due.next(), link.announcer.due.next()});
}

}  // namespace

void sender_advance(Link& link) {
  std::deque<Datagram>& urgent = link.outbox.urgent;
  while (outbox_allowed_at(link) <= link.now) {
    if (!urgent.empty()) {
      outbox_release(link, std::move(urgent.front()));
      urgent.pop_front();
      continue;
    }
    if (next_due(link) > link.now) {
      return;
    }
    // Goodbyes go first, then probes.
    const bool is_probe = link.announcer.goodbyes.next() > link.now && link.prober.due.next() <= link.now;
    Writer writer = is_probe ? prober_write(link) : announcer_write(link);
    if (!writer_is_empty(writer)) {
      outbox_release(link, {link.protocols, {}, writer_take(writer)});
    }
  }
}

Time sender_deadline(const Link& link) {
  const Time due = link.outbox.urgent.empty() ? next_due(link) : link.now;
  return due == kNever ? kNever : std::max(due, outbox_allowed_at(link));
}

}  // namespace mdns
