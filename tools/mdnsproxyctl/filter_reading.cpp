// SPDX-License-Identifier: MIT
// Asks nft(8) for the packet filter, and takes from its answer (libnftables-json(5)) what a judgement needs.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>

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

// The older iptables, of whose rules nft says nothing. Their tables are made when anybody looks at them.
struct OldFilter {
  const char* tables;  // lists the names of those that there are
  const char* name;
  std::vector<const char*> paths;
};

bool may_have_rules(const OldFilter& filter) {
  std::string table;
  if (!(std::ifstream(filter.tables) >> table)) {
    return false;
  }
  const ProgramRun run = run_program(
      {.paths = filter.paths, .arguments = {filter.name}, .longest = kLongestRun, .most_output = kMostBytes});
  return run.status != 0 || !run.is_whole || has_saved_rules(run.output);
}

bool may_have_old_rules() {
  return may_have_rules({"/proc/net/ip_tables_names",
                         "iptables-legacy-save",
                         {"/usr/sbin/iptables-legacy-save", "/sbin/iptables-legacy-save"}}) ||
         may_have_rules({"/proc/net/ip6_tables_names",
                         "ip6tables-legacy-save",
                         {"/usr/sbin/ip6tables-legacy-save", "/sbin/ip6tables-legacy-save"}});
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

bool has_saved_rules(const std::string& saved) {
  std::istringstream lines(saved);
  bool translates = false;
  for (std::string line; std::getline(lines, line);) {
    translates = line.starts_with('*') ? line == "*nat" : translates;
    const bool drops = line.starts_with(':') && line.find(" DROP ") != std::string::npos;
    if (!translates && (drops || line.starts_with("-A ") || line.starts_with("["))) {
      return true;
    }
  }
  return false;
}

FilterReading read_filter() {
  if (geteuid() != 0) {
    return {FilterOutcome::needs_root, "not looked at: only root may read the packet filter", {}, ""};
  }
  const ProgramRun nft = run_program({.paths = {"/usr/sbin/nft", "/sbin/nft", "/usr/bin/nft"},
                                      .arguments = {"nft", "-j", "list", "ruleset"},
                                      .longest = kLongestRun,
                                      .most_output = kMostBytes});
  const std::string old_rules =
      may_have_old_rules() ? "not looked at: the rules of iptables-legacy, which iptables-legacy-save shows" : "";
  if (nft.path == nullptr && !old_rules.empty()) {
    return {FilterOutcome::failed, old_rules, {}, ""};
  }
  if (nft.path == nullptr) {
    return {FilterOutcome::no_program, "not looked at: nft is not installed (Debian's package nftables)", {}, ""};
  }
  const bool is_well = nft.status == 0 && nft.is_whole;
  const std::optional<std::vector<FilterChain>> chains = is_well ? filter_chains(nft.output) : std::nullopt;
  if (!chains) {
    return {FilterOutcome::failed, "not looked at: " + std::string(nft.path) + " -j list ruleset has failed", {}, ""};
  }
  return {FilterOutcome::ok, "", *chains, old_rules};
}
