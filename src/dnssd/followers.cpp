// SPDX-License-Identifier: MIT
#include "dnssd/followers.h"

#include <algorithm>

#include "dnssd/engine.h"
#include "dnssd/interface.h"
#include "dnssd/operations.h"
#include "dnssd/references.h"

namespace dnssd {
namespace {

constexpr std::uint16_t kFollowed[] = {mdns::kTypeSrv, mdns::kTypeTxt};

std::size_t place_of(std::uint16_t rrtype) { return rrtype == mdns::kTypeSrv ? 0 : 1; }

std::uint64_t hash_of(const std::string& rdata) { return mdns::hash_folded(rdata, 0); }

Handle new_handle() {
  static Handle last = 0;
  last += 2;
  return last;
}

Follower* find(Handle handle) {
  const auto found = gEngine->followers.find(handle);
  return found == gEngine->followers.end() ? nullptr : found->second.get();
}

// Whether a browse of the interface has reported the instance.
bool is_browsed(const Interface& interface, const std::string& name) {
  return std::any_of(interface.browses.begin(), interface.browses.end(), [&](Handle handle) {
    Operation* operation = operation_find(handle);
    return operation != nullptr && part_of<Browse>(*operation).instances.contains(name);
  });
}

void end(Handle handle) {
  const auto found = gEngine->followers.find(handle);
  if (found == gEngine->followers.end()) {
    return;
  }
  const std::unique_ptr<Follower> follower = std::move(found->second);
  gEngine->followers.erase(found);
  Interface& interface = *follower->interface;
  interface.followed.erase(follower->name);
  const auto [first, last] = interface.followed_by_host.equal_range(follower->host);
  const auto own = std::find_if(first, last, [handle](const auto& entry) { return entry.second == handle; });
  if (own != last) {
    interface.followed_by_host.erase(own);
  }
  for (const mdns::QueryId query : follower->queries) {
    mdns::query_stop(interface_link(interface), monotonic_now(), query);
  }
}

void end_named(Interface& interface, const std::string& name) {
  const auto known = interface.followed.find(name);
  if (known != interface.followed.end()) {
    end(Handle(known->second));
  }
}

// Both records are there.
bool is_whole(const Follower& follower) { return !follower.live[0].empty() && !follower.live[1].empty(); }

// What is said now is other than it was reported, and comes from the host that said that.
bool has_changed(const Follower& follower) {
  bool changed = false;
  for (std::size_t place = 0; place < follower.live.size() && is_whole(follower); ++place) {
    changed = changed || (follower.is_vouched[place] && follower.live[place].back() != follower.reported[place]);
  }
  return changed;
}

void report_change(const Follower& follower) {
  for (const Handle handle : follower.interface->browses) {
    Operation* operation = operation_find(handle);
    if (operation != nullptr) {
      browse_report_again(*operation, follower.name);
    }
  }
}

// `is_reported`: the event is about what was reported, and not about other data. Who says that owns the record, over each
// protocol.
void note_owner(Follower& follower, std::size_t place, bool is_reported, const mdns::Event& event) {
  bool is_owner = false;
  for (std::size_t protocol = 0; protocol < event.said_by.size(); ++protocol) {
    std::uint32_t& owner = follower.owner[place][protocol];
    owner = is_reported && event.said_by[protocol] != 0 ? event.said_by[protocol] : owner;
    is_owner = is_owner || (owner != 0 && owner == event.said_by[protocol]);
  }
  follower.is_vouched[place] = !is_reported && is_owner;
}

}  // namespace

void followers_begin(const Operation& operation, const Resolve& resolve) {
  Interface& interface = *operation.interface;
  if (resolve.reported_srv.empty() || !is_browsed(interface, resolve.name)) {
    return;
  }
  end_named(interface, resolve.name);
  const Handle handle = new_handle();
  auto follower = std::make_unique<Follower>();
  follower->interface = &interface;
  follower->name = resolve.name;
  follower->host = mdns::target_of(mdns::kTypeSrv, resolve.reported_srv);
  follower->reported = {hash_of(resolve.reported_srv), hash_of(resolve.reported_txt)};
  for (const std::uint16_t rrtype : kFollowed) {
    follower->queries[place_of(rrtype)] =
        mdns::query_start(interface_link(interface), monotonic_now(), resolve.name, rrtype, handle, mdns::Interest::listening);
  }
  interface.followed.emplace(follower->name, handle);
  interface.followed_by_host.emplace(follower->host, handle);
  gEngine->followers.emplace(handle, std::move(follower));
}

void followers_event(const mdns::Event& event) {
  const auto handle = static_cast<Handle>(event.tag);
  Follower* follower = find(handle);
  if (follower == nullptr) {
    return;
  }
  const std::size_t place = place_of(event.type);
  const std::uint64_t hash = hash_of(event.rdata);
  std::erase(follower->live[place], hash);
  if (event.kind != mdns::Event::Kind::removed) {
    follower->live[place].push_back(hash);
    note_owner(*follower, place, hash == follower->reported[place], event);
  }
  gEngine->touched.push_back(handle);
}

void followers_review(Handle handle) {
  const Follower* follower = find(handle);
  if (follower != nullptr && has_changed(*follower)) {
    report_change(*follower);
    end(handle);
  }
}

void followers_unneeded(Interface& interface, const std::string& name) {
  if (!is_browsed(interface, name)) {
    end_named(interface, name);
  }
}

void host_addresses_changed(Interface& interface, const std::string& host, int change) {
  int& live = interface.live_addresses[host];
  live += change;
  if (live <= 0) {
    interface.live_addresses.erase(host);
  }
}

void host_lost_address(Interface& interface, const std::string& host) {
  host_addresses_changed(interface, host, -1);
  if (interface.live_addresses.contains(host)) {
    return;
  }
  const auto [first, last] = interface.followed_by_host.equal_range(host);
  for (auto at = first; at != last; ++at) {
    const std::string& name = find(at->second)->name;
    mdns::link_reconfirm(interface_link(interface), monotonic_now(), mdns::parent_name(name), mdns::kTypePtr, name);
  }
}

}  // namespace dnssd
