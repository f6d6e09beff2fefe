// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/doctor.h"

#include <algorithm>

#include "mdnsproxyctl/commands.h"
#include "mdnsproxyctl/json.h"

namespace {

Json notes_json(const std::vector<DoctorNote>& notes) {
  Json list = Json::array();
  for (const DoctorNote& each : notes) {
    list.push_back({{"subject", each.subject}, {"text", each.text}});
  }
  return list;
}

std::string notes_text(const Examination& examination) {
  std::vector<std::vector<std::string>> rows;
  for (const DoctorNote& each : examination.well) {
    rows.push_back({"ok", each.subject, each.text});
  }
  for (const DoctorNote& each : examination.not_seen) {
    rows.push_back({"?", each.subject, each.text});
  }
  return table(rows);
}

void put_in_order(std::vector<HealthFinding>& findings) {
  std::ranges::stable_sort(findings, std::ranges::greater(), &HealthFinding::severity);
}

}  // namespace

void add_finding(Examination& examination, HealthSeverity severity, const std::string& subject, const std::string& text,
                 const std::string& cure) {
  examination.findings.push_back({severity, subject, text, cure});
}

Examination new_examination(const Session& session) {
  return {session, machine_links(), rules_of(session), {}, {}, {}};
}

void examine_machine(Examination& examination) {
  examine_daemon(examination);
  examine_lists(examination);
  examine_port(examination);
  examine_buffer(examination);
  examine_forwarding(examination);
  examine_routes(examination);
  examine_packet_filter(examination);
  put_in_order(examination.findings);
}

void examine_all(Examination& examination) {
  examine_machine(examination);
  examine_hearing(examination);
  examine_others(examination);
  put_in_order(examination.findings);
}

int run_doctor(const Session& session) {
  Examination examination = new_examination(session);
  examine_all(examination);
  Json answer = new_answer(session);
  answer["findings"] = findings_json(examination.findings);
  answer["well"] = notes_json(examination.well);
  answer["not_looked_at"] = notes_json(examination.not_seen);
  const int base = base_status(session);
  return print_answer(session, answer, findings_text(examination.findings) + notes_text(examination),
                      base != kWell ? base : findings_status(examination.findings));
}
