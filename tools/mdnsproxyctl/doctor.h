// SPDX-License-Identifier: MIT
// What `doctor` looks at, piece by piece. Each piece adds what it finds wrong, and for each thing that it has found
// well one line that says so. `report` shows what `examine_machine` finds.
#pragma once

#include <string>
#include <vector>

#include "mdnsproxyctl/case.h"

struct DoctorNote {
  std::string subject;
  std::string text;
};

struct Examination {
  const Session& session;
  std::vector<MachineLink> links;
  std::vector<RuleView> rules;  // that the daemon has, or would have
  std::vector<HealthFinding> findings;
  std::vector<DoctorNote> well;      // what was looked at
  std::vector<DoctorNote> not_seen;  // what could not be looked at, and why
};

void add_finding(Examination& examination, HealthSeverity severity, const std::string& subject, const std::string& text,
                 const std::string& cure);

// An examination of this machine as it is, in which nothing has been looked at yet.
Examination new_examination(const Session& session);

// What can be looked at without a question on the links: all pieces but the last two. The findings are then in order,
// the worst first.
void examine_machine(Examination& examination);

// All pieces, and the same order.
void examine_all(Examination& examination);

// --- The pieces -----------------------------------------------------------------------------------------------------

// The lists and settings, and whether the daemon has the rules that they hold.
void examine_lists(Examination& examination);

// The daemon, its start, its limit, and its links.
void examine_daemon(Examination& examination);

// Who has UDP port 5353, and what was lost there.
void examine_port(Examination& examination);

// How much the kernel holds for a socket until the daemon takes it.
void examine_buffer(Examination& examination);

// Whether the kernel forwards between the links of the rules, and where the services' addresses are reached.
void examine_forwarding(Examination& examination);
void examine_routes(Examination& examination);

// Whether the packet filter lets multicast DNS pass, and clients to the services.
void examine_packet_filter(Examination& examination);

// Links on which the daemon hears nothing although something is there, or the same is elsewhere.
void examine_hearing(Examination& examination);

// Who else carries services between the links.
void examine_others(Examination& examination);
