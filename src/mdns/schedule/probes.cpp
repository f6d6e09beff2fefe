// SPDX-License-Identifier: MIT
#include "mdns/schedule/probes.h"

#include <algorithm>

#include "mdns/schedule/answers.h"

namespace mdns {
namespace {

// RFC 6762 section 8.1: a random delay before the first probe.
constexpr Time kFirstProbeWithin = 250 * kMillisecond;

}  // namespace

void probe_from(Link& link, OwnedName& owned, Time at) {
  const bool is_probing = owned.state == NameState::probing;
  const bool is_ending = is_probing && owned.probes == kProbes;
  at = is_probing ? std::max(at, owned.probe.at) : at;  // not sooner than the next probe would have been
  (is_ending ? link.prober.ending : link.prober.due).set(owned, kNever);
  owned.state = at == kNever ? NameState::unclaimed : NameState::waiting;
  owned.probes = 0;
  link.prober.due.set(owned, at);
  if (owned.denial != nullptr) {
    answer_cancel(link, *owned.denial, kBothProtocols);
  }
}

void probe_begin(Link& link, OwnedName& owned) {
  Prober& prober = link.prober;
  if (prober.batch_at < link.now) {
    prober.batch_at = link.now + random_between(link.random, 0, kFirstProbeWithin);
  }
  probe_from(link, owned, prober.batch_at);
}

void probe_stop(Link& link, OwnedName& owned) { probe_from(link, owned, kNever); }

}  // namespace mdns
