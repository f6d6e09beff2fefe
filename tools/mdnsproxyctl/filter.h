// SPDX-License-Identifier: MIT
// The packet filter of this machine, as nft(8) tells it to root, and what it does to a packet.
//
// The judgement is one by best effort: interfaces, addresses, protocols, ports and the state of a connection are
// compared, of named sets, marks and what other programs have added nothing is known. Where such a rule could decide
// it is said that it cannot be told. Chains that translate addresses are passed over.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mdnsproxyctl/json_fwd.h"
#include "mdnsproxyctl/machine.h"

struct FilterRule {
  int handle = 0;
  std::shared_ptr<const Json> statements;  // as libnftables-json(5) has them
};

struct FilterChain {
  std::string family;  // "ip", "ip6", "inet" or "netdev"
  std::string table;
  std::string name;
  std::string hook;                  // "": no base chain
  std::vector<std::string> devices;  // of a base chain of the family "netdev"
  int priority = 0;
  bool drops = false;  // its policy
  std::vector<FilterRule> rules;
};

enum class FilterOutcome { ok, needs_root, no_program, failed };

struct FilterReading {
  FilterOutcome outcome = FilterOutcome::failed;
  std::string message;  // why the outcome is not `ok`, as a sentence without its full stop
  std::vector<FilterChain> chains;
  std::string unread;  // rules beside the chains that nothing is known of, likewise; empty: there are none
};

// Runs nft (program.h) for five seconds at most, and iptables-legacy-save where such tables are. Everybody but root
// gets `needs_root`, and nothing is run.
FilterReading read_filter();

// The chains of what `nft -j list ruleset` writes; nothing when it is not that. What is not understood is left out.
std::optional<std::vector<FilterChain>> filter_chains(const std::string& text);

// Whether what iptables-legacy-save writes holds a rule, or a policy other than to accept, of a table that does more
// than translate addresses.
bool has_saved_rules(const std::string& saved);

struct FilterPacket {
  std::string in_link;   // empty: this machine sends it
  std::string out_link;  // empty: it is for this machine
  std::string source;    // addresses as text, both of the same family
  std::string destination;
  bool tcp = false;  // else UDP
  std::uint16_t source_port = 0;
  std::uint16_t destination_port = 0;
  bool answers = false;  // it belongs to a connection whose first packet has passed
};

// A multicast DNS packet of any host of the link, on its way to this machine. The link's own address stands for those
// of its hosts. Nothing when the link has no address of the family.
std::optional<FilterPacket> multicast_from(const MachineLink& link, bool ipv6);

// The same from this machine to the link.
std::optional<FilterPacket> multicast_to(const MachineLink& link, bool ipv6);

// What any host of the link of clients sends first to a service on the other link, and the answer to that. None when
// the link has no address of the service's family.
std::vector<FilterPacket> client_packets(const MachineLink& clients, const std::string& service_link,
                                         const std::string& address, std::uint16_t port, bool tcp);

enum class FilterFate { passes, dropped, cannot_tell };

struct FilterJudgement {
  FilterFate fate = FilterFate::passes;
  std::string place;                     // of the rule that decides, or that is not understood: for a person
  std::string chain;                     // its chain as nft(8) takes it, "inet filter input"
  std::optional<std::uint64_t> packets;  // that the rule has counted
};

FilterJudgement judge_packet(const std::vector<FilterChain>& chains, const FilterPacket& packet);

// "nft counts 19 packets dropped by chain input of table inet filter (the rule with handle 4)", of one that drops;
// where nothing is counted, "WHAT are dropped by ...".
std::string drop_text(const FilterJudgement& judgement, const std::string& what);

// The command that lets the packet pass where the judgement says that it is dropped.
std::string passing_command(const FilterJudgement& judgement, const FilterPacket& packet);
