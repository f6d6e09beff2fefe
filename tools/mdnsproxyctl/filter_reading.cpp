// SPDX-License-Identifier: MIT
// Asks nft(8) for the packet filter, and takes from its answer (libnftables-json(5)) what a judgement needs.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>

#include "mdnsproxyctl/filter.h"
#include "mdnsproxyctl/filter_match.h"
#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/program.h"

namespace {

constexpr std::chrono::seconds kLongestRun(5);
constexpr std::size_t kMostBytes = 64U * 1024 * 1024;

std::vector<std::string> devices_of(const Json& chain) {
  const Json* const device = member(chain, "dev");
  std::vector<std::string> devices;
  if (device != nullptr) {
    for (const Json& each : device->is_array() ? *device : Json::array({*device})) {
      devices.push_back(each.is_string() ? each.get<std::string>() : "");
    }
  }
  return devices;
}

void add_chain(const Json& chain, std::vector<FilterChain>& chains) {
  // Chains of the type "nat" see first packets alone, and translate them.
  const std::string hook = text_of(chain, "type") == "nat" ? "" : text_of(chain, "hook");
  chains.push_back({text_of(chain, "family"),
                    text_of(chain, "table"),
                    text_of(chain, "name"),
                    hook,
                    devices_of(chain),
                    static_cast<int>(number_of(chain, "prio")),
                    text_of(chain, "policy") == "drop",
                    {}});
}

void add_rule(const Json& rule, std::vector<FilterChain>& chains) {
  const Json* const statements = member(rule, "expr");
  const auto chain = std::ranges::find_if(chains, [&](const FilterChain& each) {
    return each.name == text_of(rule, "chain") && each.table == text_of(rule, "table") &&
           each.family == text_of(rule, "family");
  });
  if (chain != chains.end() && statements != nullptr && statements->is_array()) {
    chain->rules.push_back({static_cast<int>(number_of(rule, "handle")), std::make_shared<const Json>(*statements)});
  }
}

// Whether the older iptables have tables, of which nft says nothing.
bool has_old_tables() {
  for (const char* each : {"/proc/net/ip_tables_names", "/proc/net/ip6_tables_names"}) {
    std::string name;
    if (std::ifstream(each) >> name) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::optional<std::vector<FilterChain>> filter_chains(const std::string& text) {
  const Json ruleset = Json::parse(text, nullptr, false);
  const Json* const objects = member(ruleset, "nftables");
  if (objects == nullptr || !objects->is_array()) {
    return std::nullopt;
  }
  std::vector<FilterChain> chains;
  for (const Json& each : *objects) {
    if (const Json* const chain = member(each, "chain")) {
      add_chain(*chain, chains);
    }
  }
  for (const Json& each : *objects) {
    if (const Json* const rule = member(each, "rule")) {
      add_rule(*rule, chains);
    }
  }
  return chains;
}

FilterReading read_filter() {
  if (geteuid() != 0) {
    return {FilterOutcome::needs_root, "not looked at: only root may read the packet filter", {}};
  }
  const ProgramRun nft = run_program({.paths = {"/usr/sbin/nft", "/sbin/nft", "/usr/bin/nft"},
                                      .arguments = {"nft", "-j", "list", "ruleset"},
                                      .longest = kLongestRun,
                                      .most_output = kMostBytes});
  const char* const old_tables =
      "not looked at: its rules are those of iptables-legacy, which iptables-legacy-save shows";
  if (nft.path == nullptr && has_old_tables()) {
    return {FilterOutcome::failed, old_tables, {}};
  }
  if (nft.path == nullptr) {
    return {FilterOutcome::no_program, "not looked at: nft is not installed (Debian's package nftables)", {}};
  }
  const bool is_well = nft.status == 0 && nft.is_whole;
  const std::optional<std::vector<FilterChain>> chains = is_well ? filter_chains(nft.output) : std::nullopt;
  if (!chains) {
    return {FilterOutcome::failed, "not looked at: " + std::string(nft.path) + " -j list ruleset has failed", {}};
  }
  if (chains->empty() && has_old_tables()) {
    return {FilterOutcome::failed, old_tables, {}};
  }
  return {FilterOutcome::ok, "", *chains};
}
