// SPDX-License-Identifier: MIT
#include <algorithm>

#include "mdnsproxyctl/commands.h"
#include "mdnsproxyctl/health.h"
#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/schema.h"

namespace {

std::string reasons_text(const StateView& view) {
  std::string text;
  for (std::size_t i = 1; i <= static_cast<std::size_t>(StateReason::conflict); ++i) {
    const auto count = std::ranges::count(view.instances, static_cast<StateReason>(i), &InstanceView::reason);
    if (count > 0) {
      text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + reason_word(static_cast<StateReason>(i));
    }
  }
  return text.empty() ? "" : " (" + text + ")";
}

std::string worst_text(const std::vector<HealthFinding>& findings) {
  return findings.empty() ? "health    nothing is wrong with the daemon and its links\n" : findings_text(findings);
}

std::string text_of(const Session& session, const std::vector<HealthFinding>& findings) {
  const StateView& view = session.state.view;
  const StateCounts counts = count_states(view);
  return worst_text(findings) + "running   since " + utc_time(view.started, session.clocks) + " (" +
         duration(age(view.started, session.clocks)) + "), process " + std::to_string(view.pid) + ", version " +
         shown(view.version) + "\n" + "rules     " + std::to_string(view.rules.size()) + " of " +
         shown(view.rules_file) + "\n" + "services  " + std::to_string(counts.forwarded) + " forwarded, " +
         std::to_string(counts.waiting) + " waiting, " + std::to_string(counts.refused) + " refused" +
         reasons_text(view) + "\n" + "limit     " + std::to_string(count_living(view)) + " of " +
         std::to_string(view.limit) + ", at most " + std::to_string(view.counter(StateCounter::high_water)) +
         " at a time until now\n";
}

}  // namespace

int run_status(const Session& session) {
  Json answer = new_answer(session);
  if (!session.is_running()) {
    return print_answer(session, answer, absence(session), base_status(session));
  }
  const StateView& view = session.state.view;
  const std::vector<HealthFinding> findings = findings_of(session, machine_links());
  const StateCounts counts = count_states(view);
  answer["findings"] = findings_json(findings);
  answer["rules"] = view.rules.size();
  answer["rules_file"] = view.rules_file;
  answer["services"] = {{"forwarded", counts.forwarded}, {"waiting", counts.waiting}, {"refused", counts.refused}};
  answer["limit"] = limit_json(view);
  return print_answer(session, answer, text_of(session, findings), overall_status(session, findings));
}
