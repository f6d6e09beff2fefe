// SPDX-License-Identifier: MIT
#include "simulation/forwarded_hosts.h"

#include <algorithm>

#include "simulation/actors.h"
#include "simulation/state_rules.h"

namespace simulation {
namespace {

// How long no other host must have sent an address of the original name before the host gets that back.
constexpr Time kFreeFor = 10 * kSecond;

void move(ForwardedHost& host, int attempt, bool with_goodbye);

ForwardedHost* find(const Port& port, const std::string& original) {
  const auto found = port.forwarded.find(folded(original));
  return found == port.forwarded.end() ? nullptr : found->second.get();
}

std::string name_of(const ForwardedHost& host, int attempt) {
  const std::size_t length = static_cast<std::uint8_t>(host.original[0]);
  return wire::label(numbered(host.original.substr(1, length), attempt, "-", "")) + host.original.substr(1 + length);
}

// Whether the gateway itself has another host of that name: their shared records under one name could not be
// distinguished.
bool is_of_another(const ForwardedHost& host, const std::string& name) {
  return std::any_of(host.port->forwarded.begin(), host.port->forwarded.end(), [&](const auto& each) {
    const ForwardedHost& other = *each.second;
    return &other != &host && (each.first == folded(name) || folded(name_of(other, other.attempt)) == folded(name));
  });
}

int next_attempt(const ForwardedHost& host) {
  int attempt = host.attempt + 1;
  while (is_of_another(host, name_of(host, attempt))) {
    ++attempt;
  }
  return attempt;
}

Tag borrow(ForwardedHost& host, std::vector<mdns::RecordData> records) {
  return publish(*host.port, name_of(host, host.attempt), std::move(records), mdns::Claim::yielding,
                 [&host](bool established) {
                   if (!established) {
                     move(host, next_attempt(host), false);
                   }
                 });
}

void publish_all(ForwardedHost& host) {
  if (host.looks_first) {
    host.look = borrow(host, {});
  }
  for (auto& [number, use] : host.uses) {
    for (auto& [address, tag] : use.addresses) {
      tag = borrow(host, {{address.first, 0, address.second}});
    }
  }
}

void withdraw_all(ForwardedHost& host, bool with_goodbye) {
  for (auto& [number, use] : host.uses) {
    for (auto& [address, tag] : use.addresses) {
      withdraw(*host.port, tag, with_goodbye);
    }
  }
  withdraw(*host.port, host.look, with_goodbye);
}

// --- Back to the original name

bool is_own(const ForwardedHost& host, const Address& address) {
  return std::any_of(host.uses.begin(), host.uses.end(),
                     [&](const auto& each) { return each.second.addresses.contains(address); });
}

// Whether no other host owns the original name. Records of another port of this gateway that has it already do not
// count, nor the host's own addresses.
bool is_original_free(const ForwardedHost& host) {
  for (const Tag tag : {host.v4_query, host.v6_query}) {
    const auto query = host.port->queries.find(tag);
    if (query != host.port->queries.end() &&
        std::any_of(query->second.known.begin(), query->second.known.end(), [&](const Known& known) {
          return known.is_unique && !is_own(host, {query->second.type, known.rdata});
        })) {
      return false;
    }
  }
  return true;
}

// When nothing has changed by then, the host moves back.
void plan_return(Port& port, const std::string& original, std::uint64_t frees) {
  call_at(*port.world, port.world->now + kFreeFor, [&port, original, frees] {
    ForwardedHost* const host = find(port, original);
    if (host == nullptr || host->frees != frees || !host->is_free || host->attempt == 1) {
      return;
    }
    if (!is_present(port)) {
      plan_return(port, original, frees);
    } else {
      move(*host, 1, true);
    }
  });
}

void review(ForwardedHost& host) {
  const bool is_free = host.attempt > 1 && is_original_free(host);
  if (is_free != host.is_free) {
    host.is_free = is_free;
    ++host.frees;
    if (is_free) {
      host.freed_at = host.port->world->now;
      plan_return(*host.port, host.original, host.frees);
    }
  }
}

void watch_original(ForwardedHost& host) {
  Port& port = *host.port;
  if (host.attempt == 1) {
    stop(port, host.v4_query);
    stop(port, host.v6_query);
    host.v4_query = host.v6_query = 0;
  } else if (host.v4_query == 0) {
    const auto report = [&host](bool, const std::string&) { review(host); };
    host.v4_query = query(port, host.original, mdns::kTypeA, report);
    host.v6_query = query(port, host.original, mdns::kTypeAaaa, report);
  }
  review(host);
}

// The host appears under another name, and the services with it.
void move(ForwardedHost& host, int attempt, bool with_goodbye) {
  withdraw_all(host, with_goodbye);
  host.attempt = attempt;
  host.moved_at = host.port->world->now;
  note(*host.port->world, host.port, "takes for a forwarded host the name", text_of(name_of(host, attempt)));
  publish_all(host);
  watch_original(host);
  std::vector<std::function<void()>> renamed;
  for (const auto& [number, use] : host.uses) {
    renamed.push_back(use.renamed);
  }
  for (const std::function<void()>& call : renamed) {
    call();
  }
}

ForwardedHost& add_host(Port& port, const std::string& original) {
  auto host = std::make_shared<ForwardedHost>();
  host->port = &port;
  host->original = original;
  host->moved_at = port.world->now;
  host->looks_first = port.index % 2 == 0;
  port.forwarded[folded(original)] = host;
  for (const auto& [key, other] : port.forwarded) {
    if (other != host && folded(name_of(*other, other->attempt)) == folded(original)) {
      move(*other, next_attempt(*other), true);  // it only borrows the name that this one has by itself
      break;
    }
  }
  publish_all(*host);
  return *host;
}

}  // namespace

int host_use(Port& port, const std::string& original, const Medium& from, std::function<void()> renamed) {
  ForwardedHost* const known = find(port, original);
  ForwardedHost& host = known != nullptr ? *known : add_host(port, original);
  host.uses[++host.last_use] = {&from, {}, std::move(renamed)};
  return host.last_use;
}

void host_set_addresses(Port& port, const std::string& original, int use, const std::set<Address>& addresses) {
  ForwardedHost& host = *find(port, original);
  std::map<Address, Tag>& known = host.uses.at(use).addresses;
  for (const Address& address : addresses) {  // before the old ones go, so that the name is not probed for again
    if (!known.contains(address)) {
      known[address] = borrow(host, {{address.first, 0, address.second}});
    }
  }
  std::erase_if(known, [&](const auto& each) {
    if (!addresses.contains(each.first)) {
      withdraw(port, each.second);
      return true;
    }
    return false;
  });
  review(host);
}

void host_leave(Port& port, const std::string& original, int use) {
  ForwardedHost* const host = find(port, original);
  if (host == nullptr) {
    return;
  }
  host_set_addresses(port, original, use, {});
  host->uses.erase(use);
  if (host->uses.empty()) {
    withdraw(port, host->look);
    stop(port, host->v4_query);
    stop(port, host->v6_query);
    port.forwarded.erase(folded(original));
  }
}

std::string host_name_on(const Port& port, const std::string& original) {
  const ForwardedHost* const host = find(port, original);
  return host == nullptr ? original : name_of(*host, host->attempt);
}

namespace {

// Whether another host sends an address of the original name, or caches may still have one. Cached records that should
// not be there are found by other rules.
bool is_taken(const ForwardedHost& host, bool exactly) {
  const Medium& medium = *host.port->medium;
  for (const Tag tag : {host.v4_query, host.v6_query}) {
    const auto query = host.port->queries.find(tag);
    if (query == host.port->queries.end()) {
      continue;
    }
    const auto truths = medium.truth.find(query->second.set_hash);
    if (truths != medium.truth.end() &&
        std::any_of(truths->second.begin(), truths->second.end(), [](const Truth& truth) { return truth.unique; })) {
      return true;
    }
    for (const Known& known : query->second.known) {
      const auto gone = medium.gone.find(known.hash);
      if (!exactly && gone != medium.gone.end() && gone->second.without_goodbye) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace

void check_forwarded_hosts(World& world, const Port& port, bool exactly) {
  for (const auto& [key, host] : port.forwarded) {
    const Time enough = kFreeFor + kSettledWithin;
    const bool is_on_its_way = host->is_free && world.now - host->freed_at < enough;
    if (host->attempt > 1 && is_undisturbed(port, world.now, enough) && world.now - host->moved_at >= enough &&
        !is_on_its_way && !is_taken(*host, exactly)) {
      fail(world, &port, "a forwarded host does not get its name back", text_of(name_of(*host, host->attempt)));
    }
  }
}

}  // namespace simulation
