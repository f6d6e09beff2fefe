// SPDX-License-Identifier: MIT
// Only our own DNS-SD library counts what passes over its links. Under another one the function is missing, which a
// weak symbol tells, and the state file says nothing of links.
#include <dns_sd_figures.h>

#include <algorithm>

#include "runtime/startup.h"
#include "state/state.h"

#pragma weak dns_sd_link_figures

static_assert(kStateSiblings == static_cast<std::uint32_t>(kDNSSDFiguresSiblings));

namespace {

StateHost to_state(const dns_sd_host& host) {
  StateHost result = {host.family, {}};
  std::ranges::copy(host.address, result.address);
  return result;
}

StateLinkFigures to_state(const dns_sd_figures& figures) {
  StateLinkFigures result = {figures.received, figures.ignored, figures.lost, figures.sent, figures.conflicts, {}, {}};
  std::ranges::transform(figures.siblings, result.siblings, [](const dns_sd_host& host) { return to_state(host); });
  return result;
}

}  // namespace

void report_link_figures() {
  static dns_sd_figures all[kStateLinks];
  const std::size_t count = dns_sd_link_figures != nullptr ? dns_sd_link_figures(all, kStateLinks) : 0;
  for (std::size_t i = 0; i < count; ++i) {
    state_link(all[i].interface_index, to_state(all[i]));
  }
}
