// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/report.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <set>
#include <tuple>

#include "mdnsproxyctl/commands.h"
#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/output_file.h"

namespace {

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
constexpr std::uint64_t kDay = 86400 * kNsPerSecond;

// A service is on its way for a second or two: host, address and name come one after the other. A state that another
// one followed so soon was a step of that way, and is not worth a line.
constexpr std::uint64_t kStep = 10 * kNsPerSecond;

// --- Rules and services --------------------------------------------------------------------------------------------

ReportWay& way_of(std::vector<ReportWay>& ways, const std::string& from, const std::string& to) {
  const auto found =
      std::ranges::find_if(ways, [&](const ReportWay& each) { return each.from == from && each.to == to; });
  return found != ways.end() ? *found : ways.emplace_back(ReportWay{from, to, {}});
}

ReportRule& rule_of(ReportWay& way, std::uint32_t line) {
  const auto found = std::ranges::find(way.rules, line, &ReportRule::line);
  return found != way.rules.end() ? *found : way.rules.emplace_back(ReportRule{line, false, {}, {}, 0, {}});
}

ReportRule& rule_of(std::vector<ReportWay>& ways, const RuleView& rule) {
  return rule_of(way_of(ways, rule.from, rule.to), rule.line);
}

bool is_both_ways(const std::vector<ReportWay>& ways, const ReportWay& way, const ReportRule& rule) {
  return rule.line != 0 && std::ranges::any_of(ways, [&](const ReportWay& each) {
           return each.from == way.to && each.to == way.from &&
                  std::ranges::count(each.rules, rule.line, &ReportRule::line) > 0;
         });
}

void put_in_order(ReportRule& rule) {
  std::ranges::stable_sort(rule.not_forwarded, std::ranges::greater(), &InstanceView::state);
  std::ranges::stable_sort(rule.forwarded, {}, &InstanceView::name);
}

// A service by its type, a link and its name there.
using Place = std::tuple<std::string, std::string, std::string>;

// What the daemon announces, and where.
std::set<Place> announced(const StateView& view) {
  std::set<Place> places;
  for (const InstanceView& each : view.instances) {
    if (each.state == StateOfInstance::forwarded) {
      places.emplace(view.rules[each.rule].type, view.rules[each.rule].to, each.name_there);
    }
  }
  return places;
}

void add_service(const StateView& view, const std::set<Place>& own, const InstanceView& instance, ReportRule& rule) {
  const RuleView& through = view.rules[instance.rule];
  if (instance.state == StateOfInstance::forwarded) {
    rule.forwarded.push_back(&instance);
  } else if (instance.reason == StateReason::through_gateway &&
             own.contains({through.type, through.from, instance.name})) {
    ++rule.own;
  } else {
    rule.not_forwarded.push_back(&instance);
  }
}

std::vector<ReportWay> ways_of(const StateView& view) {
  std::vector<ReportWay> ways;
  for (const RuleView& each : view.rules) {
    rule_of(ways, each).types.push_back(each.type);
  }
  const std::set<Place> own = announced(view);
  for (const InstanceView& each : view.instances) {
    add_service(view, own, each, rule_of(ways, view.rules[each.rule]));
  }
  for (ReportWay& way : ways) {
    for (ReportRule& rule : way.rules) {
      rule.both_ways = is_both_ways(ways, way, rule);
      put_in_order(rule);
    }
  }
  return ways;
}

std::vector<ReportLink> links_of(const StateView& view, const std::vector<MachineLink>& machine) {
  std::vector<ReportLink> links;
  for (const RuleLink& each : rule_links(view)) {
    links.push_back({each, find_link(machine, each.name), link_findings(each.name, each.index, machine)});
  }
  return links;
}

// --- Comings and goings --------------------------------------------------------------------------------------------

bool is_a_step(const std::vector<EventView>& events, std::size_t position) {
  const EventView& event = events[position];
  if (event.after != StateOfInstance::waiting && event.reason != StateReason::link_local_only) {
    return false;
  }
  for (std::size_t later = position + 1; later < events.size(); ++later) {
    if (events[later].rule == event.rule && events[later].name == event.name) {
      return events[later].time - event.time < kStep;
    }
  }
  return false;
}

std::uint64_t day_ago(const Clocks& clocks) { return clocks.boottime > kDay ? clocks.boottime - kDay : 0; }

std::vector<const EventView*> recent_events(const Session& session) {
  const std::vector<EventView>& events = session.state.view.events;
  const std::uint64_t not_before = day_ago(session.clocks);
  std::vector<const EventView*> recent;
  for (std::size_t i = events.size(); i-- > 0;) {
    if (events[i].time >= not_before && !is_a_step(events, i)) {
      recent.push_back(&events[i]);
    }
  }
  return recent;
}

// The ring forgets the oldest, and the daemon knows nothing of the time before its start.
std::uint64_t known_from(const Session& session) {
  const StateView& view = session.state.view;
  const bool some_forgotten = !view.events.empty() && view.events.front().number > 0;
  return std::max(some_forgotten ? view.events.front().time : view.started, day_ago(session.clocks));
}

// --- JSON ----------------------------------------------------------------------------------------------------------

void add_checks(const std::vector<ReportCheck>& checks, Json& answer) {
  answer["checks"] = Json::array();
  answer["not_looked_at"] = Json::array();
  for (const ReportCheck& each : checks) {
    if (each.result == CheckResult::not_seen) {
      answer["not_looked_at"].push_back({{"subject", each.subject}, {"text", each.text}});
    } else {
      answer["checks"].push_back({{"result", check_word(each.result)},
                                  {"subject", each.subject},
                                  {"text", each.text},
                                  {"cure", each.cure.empty() ? Json(nullptr) : Json(each.cure)}});
    }
  }
}

template <typename Records, typename ToJson>
Json list_of(const Records& records, ToJson to_json) {
  Json list = Json::array();
  for (const auto& each : records) {
    list.push_back(to_json(each));
  }
  return list;
}

void add_what_runs(const Report& report, Json& answer) {
  const StateView& view = report.session.state.view;
  answer["rules_file"] = view.rules_file;
  answer["limit"] = limit_json(view);
  answer["links"] = list_of(report.links, [&](const ReportLink& each) {
    return link_json(report.session, each.held, each.now, each.findings);
  });
  for (std::size_t i = 0; i < view.rules.size(); ++i) {
    answer["rules"].push_back(rule_json(view, i));
  }
  answer["services"] =
      list_of(view.instances, [&](const InstanceView& each) { return service_json(report.session, each); });
}

std::string host_name() {
  std::array<char, HOST_NAME_MAX + 1> name = {};
  return gethostname(name.data(), name.size() - 1) == 0 ? std::string(name.data()) : std::string();
}

}  // namespace

Report report_of(const Examination& examination, const std::string& host) {
  const Session& session = examination.session;
  Report report = {session, host, report_checks(examination), {}, {}, {}, 0};
  if (session.is_running()) {
    report.links = links_of(session.state.view, examination.links);
    report.ways = ways_of(session.state.view);
  }
  if (session.has_state()) {
    report.events = recent_events(session);
    report.events_from = known_from(session);
  }
  return report;
}

Json report_json(const Report& report) {
  const Session& session = report.session;
  Json answer = new_answer(session);
  answer["host"] = report.host;
  answer["made"] = utc_time(session.clocks.boottime, session.clocks);
  answer["state_file"] = session.options.state_file;
  answer["rules_file"] = nullptr;
  answer["limit"] = nullptr;
  add_checks(report.checks, answer);
  for (const char* list : {"links", "rules", "services"}) {
    answer[list] = Json::array();
  }
  if (session.is_running()) {
    add_what_runs(report, answer);
  }
  answer["events"] = list_of(report.events, [&](const EventView* each) { return event_json(session, *each); });
  answer["events_from"] = session.has_state() ? Json(utc_time(report.events_from, session.clocks)) : Json(nullptr);
  return answer;
}

int run_report(const Session& session, const std::string& file) {
  Examination examination = new_examination(session);
  examine_machine(examination);
  const Report report = report_of(examination, host_name());
  return write_answer(session, file, report_json(report), report_page(report),
                      overall_status(session, examination.findings));
}
