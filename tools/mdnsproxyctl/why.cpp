// SPDX-License-Identifier: MIT
#include <algorithm>

#include "mdnsproxy-check/verdict.h"
#include "mdnsproxyctl/case.h"
#include "mdnsproxyctl/commands.h"
#include "mdnsproxyctl/json.h"

void add_step(Case& the_case, const char* name, std::optional<bool> ok, const std::string& detail,
              const std::string& cure) {
  the_case.steps.push_back({name, ok, detail, ok == false ? cure : ""});
}

bool is_type(const std::string& subject) { return subject.starts_with("_") && subject.find("._") != std::string::npos; }

std::string base_type(const std::string& type) {
  const std::size_t last = type.rfind('.');
  const std::size_t before = last != std::string::npos && last > 0 ? type.rfind('.', last - 1) : std::string::npos;
  return before != std::string::npos ? type.substr(before + 1) : type;
}

std::vector<RuleView> rules_of(const Session& session) {
  if (session.has_state()) {
    return session.state.view.rules;
  }
  const CheckRequest request = {session.options.services_file, session.options.rules_file, "/nonexistent", false,
                                std::nullopt};
  std::vector<RuleView> rules;
  for (const Installation& each : check_files(request).installations) {
    rules.push_back({each.position.line, each.if_from, each.if_to, 0, 0, each.service_type, 0});
  }
  return rules;
}

namespace {

bool is_between(const RuleView& rule, const WhyQuestion& question) {
  return (question.from.empty() || rule.from == question.from) && (question.to.empty() || rule.to == question.to);
}

// The one that is worst off, of those that the question is about.
const InstanceView* find_instance(const Session& session, const WhyQuestion& question) {
  const InstanceView* found = nullptr;
  for (const InstanceView& each : session.state.view.instances) {
    const RuleView& rule = session.state.view.rules[each.rule];
    const bool asked = is_type(question.subject)
                           ? rule.type == question.subject || base_type(rule.type) == question.subject
                           : each.name == question.subject || each.name_there == question.subject;
    if (asked && is_between(rule, question) && (found == nullptr || found->state < each.state)) {
      found = &each;
    }
  }
  return found;
}

void examine_daemon(Case& the_case) {
  const Session& session = the_case.session;
  if (!session.is_running()) {
    const HealthFinding absent = absence_finding(session);
    add_step(the_case, "daemon", false, absent.text, absent.cure);
    return;
  }
  const std::vector<HealthFinding> findings = findings_of(session, the_case.links);
  const auto found = std::ranges::find_if(findings, [](const HealthFinding& each) { return each.subject == "daemon"; });
  const bool well = found == findings.end();
  add_step(the_case, "daemon", well, well ? "it runs, process " + std::to_string(session.state.view.pid) : found->text,
           well ? "" : found->cure);
}

const Step* first_failure(const Case& the_case) {
  const auto failed = std::ranges::find_if(the_case.steps, [](const Step& each) { return each.ok == false; });
  return failed != the_case.steps.end() ? &*failed : nullptr;
}

Json word_or_null(const std::string& word) { return word.empty() ? Json(nullptr) : Json(word); }

Json answer_json(const Case& the_case) {
  const InstanceView* const instance = the_case.instance;
  const Step* const failure = first_failure(the_case);
  Json answer = new_answer(the_case.session);
  answer["service"] = instance != nullptr ? service_json(the_case.session, *instance) : Json(nullptr);
  answer["steps"] = Json::array();
  for (const Step& each : the_case.steps) {
    answer["steps"].push_back({{"step", each.name},
                               {"ok", each.ok ? Json(*each.ok) : Json(nullptr)},
                               {"detail", each.detail},
                               {"cure", word_or_null(each.cure)}});
  }
  const StateReason reason = instance != nullptr ? instance->reason : the_case.reason;
  answer["verdict"] = {{"state", instance != nullptr ? Json(state_word(instance->state)) : Json(nullptr)},
                       {"reason", word_or_null(reason_word(reason))},
                       {"step", failure != nullptr ? Json(failure->name) : Json(nullptr)},
                       {"cure", failure != nullptr ? Json(failure->cure) : Json(nullptr)}};
  return answer;
}

std::string answer_text(const Case& the_case) {
  std::vector<std::vector<std::string>> rows;
  for (const Step& each : the_case.steps) {
    rows.push_back({!each.ok ? "?" : *each.ok ? "ok" : "FAILS", each.name, each.detail});
  }
  const InstanceView* const instance = the_case.instance;
  const Step* const failure = first_failure(the_case);
  const std::string state = instance != nullptr ? state_word(instance->state) : "not known to the daemon";
  return in_quotes(the_case.instance != nullptr ? instance->name : the_case.question.subject) + ": " + state + "\n" +
         table(rows) + (failure != nullptr ? "cure: " + failure->cure + "\n" : "");
}

int case_status(const Case& the_case) {
  const Step* const failure = first_failure(the_case);
  if (const int base = base_status(the_case.session); base != kWell) {
    return base;
  }
  if (failure == nullptr) {
    return the_case.instance != nullptr ? kWell : kWorthALook;
  }
  const std::string step = failure->name;
  return step == "daemon" || step == "link_from" || step == "link_to" ? kUnwell : kWorthALook;
}

}  // namespace

int run_why(const Session& session, const WhyQuestion& question) {
  Case the_case = {session, question, machine_links(), {}, nullptr, {}};
  std::ranges::copy_if(rules_of(session), std::back_inserter(the_case.rules),
                       [&](const RuleView& each) { return question.to.empty() || each.to == question.to; });
  examine_daemon(the_case);
  if (session.is_running()) {
    the_case.instance = find_instance(session, question);
  }
  if (the_case.instance != nullptr) {
    examine_known(the_case);
  } else {
    examine_unknown(the_case);
  }
  return print_answer(session, answer_json(the_case), answer_text(the_case), case_status(the_case));
}
