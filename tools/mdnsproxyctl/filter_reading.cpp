// SPDX-License-Identifier: MIT
// Asks nft(8) for the packet filter, and takes from its answer (libnftables-json(5)) what a judgement needs.

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>

#include "mdnsproxyctl/filter.h"
#include "mdnsproxyctl/filter_match.h"
#include "mdnsproxyctl/json.h"

namespace {

constexpr const char* kPrograms[] = {"/usr/sbin/nft", "/sbin/nft", "/usr/bin/nft"};
constexpr std::chrono::seconds kLongestRun(5);
constexpr std::size_t kMostBytes = 64U * 1024 * 1024;

const char* find_program() {
  const auto found = std::ranges::find_if(kPrograms, [](const char* each) { return access(each, X_OK) == 0; });
  return found != std::end(kPrograms) ? *found : nullptr;
}

// Starts it with the pipe as its standard output, and nothing else open; -1 when that fails.
pid_t start(const char* program, int output) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  char name[] = "nft";
  char json[] = "-j";
  char list[] = "list";
  char ruleset[] = "ruleset";
  char path[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
  char locale[] = "LC_ALL=C";
  char* const arguments[] = {name, json, list, ruleset, nullptr};
  char* const environment[] = {path, locale, nullptr};
  pid_t process = -1;
  const int error = posix_spawn(&process, program, &actions, nullptr, arguments, environment);
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? process : -1;
}

// What it writes until it closes its output; nothing when that takes too long or is too much.
std::optional<std::string> read_all(int input) {
  std::string text;
  const auto end = std::chrono::steady_clock::now() + kLongestRun;
  while (text.size() < kMostBytes) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    pollfd ready = {input, POLLIN, 0};
    if (left <= 0 || poll(&ready, 1, static_cast<int>(left)) <= 0) {
      return std::nullopt;
    }
    char bytes[65536];
    const ssize_t got = read(input, bytes, sizeof bytes);
    if (got <= 0) {
      return got == 0 ? std::optional(text) : std::nullopt;
    }
    text.append(bytes, static_cast<std::size_t>(got));
  }
  return std::nullopt;
}

// Its output when it ends well.
std::optional<std::string> run(const char* program) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return std::nullopt;
  }
  const pid_t process = start(program, ends[1]);
  close(ends[1]);
  std::optional<std::string> text = process != -1 ? read_all(ends[0]) : std::nullopt;
  close(ends[0]);
  int status = -1;
  if (process != -1) {
    if (!text) {
      kill(process, SIGKILL);
    }
    while (waitpid(process, &status, 0) == -1 && errno == EINTR) {
    }
  }
  return status == 0 ? text : std::nullopt;
}

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
  const char* const program = find_program();
  const char* const old_tables =
      "not looked at: its rules are those of iptables-legacy, which iptables-legacy-save shows";
  if (program == nullptr && has_old_tables()) {
    return {FilterOutcome::failed, old_tables, {}};
  }
  if (program == nullptr) {
    return {FilterOutcome::no_program, "not looked at: nft is not installed (Debian's package nftables)", {}};
  }
  const std::optional<std::string> text = run(program);
  const std::optional<std::vector<FilterChain>> chains = text ? filter_chains(*text) : std::nullopt;
  if (!chains) {
    return {FilterOutcome::failed, "not looked at: " + std::string(program) + " -j list ruleset has failed", {}};
  }
  if (chains->empty() && has_old_tables()) {
    return {FilterOutcome::failed, old_tables, {}};
  }
  return {FilterOutcome::ok, "", *chains};
}
