// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/forecast.h"

#include <algorithm>
#include <future>
#include <map>

#include "mdnsproxyctl/case.h"
#include "mdnsproxyctl/checked_file.h"
#include "mdnsproxyctl/discovery.h"

namespace {

using Types = std::vector<std::string>;

struct Outlook {
  const Session& session;
  const std::vector<MachineLink>& links;
  Forecast forecast;
};

// --- What the daemon knows -----------------------------------------------------------------------------------------

const std::vector<RuleView>& rules_now(const Outlook& outlook) { return outlook.session.state.view.rules; }

const std::vector<InstanceView>& instances_now(const Outlook& outlook) { return outlook.session.state.view.instances; }

// Whether the daemon hears something on the link of the rule: a link that was made anew is another one.
bool is_alive(const Outlook& outlook, const RuleView& rule) {
  const MachineLink* const link = find_link(outlook.links, rule.from);
  return outlook.session.is_running() && link != nullptr && link->index == rule.from_index;
}

bool is_watched(const Outlook& outlook, const std::string& link, const std::string& type) {
  return std::ranges::any_of(rules_now(outlook), [&](const RuleView& each) {
    return each.from == link && each.type == type && is_alive(outlook, each);
  });
}

// Whether a rule of today does the same, on links that are still there.
bool is_kept(const Outlook& outlook, const RuleView& rule) {
  return std::ranges::any_of(rules_now(outlook),
                             [&](const RuleView& each) { return same_way(each, rule) && is_alive(outlook, each); });
}

void find_what_goes(Outlook& outlook) {
  if (!outlook.session.is_running()) {
    return;
  }
  for (const InstanceView& each : instances_now(outlook)) {
    const RuleView& rule = rules_now(outlook)[each.rule];
    if (std::ranges::none_of(outlook.forecast.rules, [&](const RuleView& other) { return same_way(other, rule); })) {
      outlook.forecast.go.push_back(&each);
    }
  }
}

// Whether what is on the link is this daemon's own copy of something that would go.
bool would_vanish(const Outlook& outlook, const RuleView& rule, const std::string& name) {
  return std::ranges::any_of(outlook.forecast.go, [&](const InstanceView* each) {
    const RuleView& by = rules_now(outlook)[each->rule];
    return by.to == rule.from && base_type(by.type) == base_type(rule.type) && each->name_there == name;
  });
}

// --- What would come -----------------------------------------------------------------------------------------------

void add_coming(Outlook& outlook, std::size_t rule, InstanceView instance) {
  const RuleView& way = outlook.forecast.rules[rule];
  const bool is_copy = instance.reason == StateReason::through_gateway && would_vanish(outlook, way, instance.name);
  const auto is_known = [&](const InstanceView& each) { return each.rule == rule && each.name == instance.name; };
  const auto is_there = [&](const InstanceView& each) {
    return each.name == instance.name && same_way(rules_now(outlook)[each.rule], way);
  };
  const bool is_there_already = outlook.session.is_running() && std::ranges::any_of(instances_now(outlook), is_there);
  if (!is_copy && !is_there_already && std::ranges::none_of(outlook.forecast.come, is_known)) {
    instance.rule = static_cast<std::uint32_t>(rule);
    instance.name_there = "";
    instance.since = 0;
    outlook.forecast.come.push_back(std::move(instance));
  }
}

// What the daemon knows of a service decides the same for another rule, but for what is the other link's business.
InstanceView as_elsewhere(InstanceView instance) {
  switch (instance.reason) {
    case StateReason::resolving:
    case StateReason::no_address:
    case StateReason::link_local_only:
    case StateReason::through_gateway:
      break;
    default:
      instance.state = StateOfInstance::forwarded;
      instance.reason = StateReason::none;
  }
  return instance;
}

// The daemon's own decisions, in their order, about a service that it has not seen.
InstanceView as_decided(const FoundService& found) {
  InstanceView instance = {};
  instance.name = found.name;
  instance.host = found.host;
  instance.port = found.port;
  std::ranges::remove_copy_if(found.addresses, std::back_inserter(instance.addresses), is_link_local);
  if (found.through_gateway) {
    instance.state = StateOfInstance::refused;
    instance.reason = StateReason::through_gateway;
  } else if (found.host.empty()) {
    instance.state = StateOfInstance::waiting;
    instance.reason = StateReason::resolving;
  } else if (found.addresses.empty()) {
    instance.state = StateOfInstance::waiting;
    instance.reason = StateReason::no_address;
  } else if (instance.addresses.empty()) {
    instance.state = StateOfInstance::refused;
    instance.reason = StateReason::link_local_only;
    instance.addresses = found.addresses;
  } else {
    instance.state = StateOfInstance::forwarded;
  }
  return instance;
}

void add_what_is_known(Outlook& outlook, std::size_t rule) {
  const RuleView& way = outlook.forecast.rules[rule];
  for (const InstanceView& each : instances_now(outlook)) {
    const RuleView& by = rules_now(outlook)[each.rule];
    if (by.from == way.from && by.type == way.type) {
      add_coming(outlook, rule, as_elsewhere(each));
    }
  }
}

void add_what_was_found(Outlook& outlook, const std::string& link, const std::vector<FoundService>& found) {
  for (std::size_t i = 0; i < outlook.forecast.rules.size(); ++i) {
    const RuleView& rule = outlook.forecast.rules[i];
    for (const FoundService& each : found) {
      if (rule.from == link && rule.type == each.type && !is_kept(outlook, rule)) {
        add_coming(outlook, i, as_decided(each));
      }
    }
  }
}

// --- Whom to ask ---------------------------------------------------------------------------------------------------

// Why nobody is asked there; empty: somebody is.
std::string obstacle(const Outlook& outlook, const std::string& name) {
  const MachineLink* const link = find_link(outlook.links, name);
  return outlook.session.options.no_network ? "--no-network"
         : link == nullptr                  ? "there is no such interface"
         : !link->multicast                 ? "it cannot multicast"
         : !link->up                        ? "it is down"
                                            : "";
}

std::map<std::string, Types> unknown_types(const Outlook& outlook) {
  std::map<std::string, Types> unknown;
  for (const RuleView& each : outlook.forecast.rules) {
    Types& types = unknown[each.from];
    if (!is_watched(outlook, each.from, each.type) && std::ranges::find(types, each.type) == types.end()) {
      types.push_back(each.type);
    }
  }
  std::erase_if(unknown, [](const auto& each) { return each.second.empty(); });
  return unknown;
}

// All links at the same time, since each takes its seconds.
void ask_links(Outlook& outlook) {
  std::map<std::string, std::future<std::vector<FoundService>>> answers;
  for (const auto& [name, types] : unknown_types(outlook)) {
    if (const std::string why = obstacle(outlook, name); !why.empty()) {
      outlook.forecast.unasked.push_back({name, why});
    } else {
      answers[name] = std::async(std::launch::async, discover, *find_link(outlook.links, name), types);
    }
  }
  for (auto& [name, answer] : answers) {
    add_what_was_found(outlook, name, answer.get());
  }
}

// --- The limit -----------------------------------------------------------------------------------------------------

bool is_living(const InstanceView& instance) {
  return instance.reason != StateReason::limit && instance.reason != StateReason::through_gateway;
}

// Without a daemon nobody says what the limit is.
void apply_limit(Outlook& outlook) {
  if (!outlook.session.is_running()) {
    return;
  }
  std::ptrdiff_t room = static_cast<std::ptrdiff_t>(outlook.session.state.view.limit) -
                        std::ranges::count_if(instances_now(outlook), is_living) +
                        std::ranges::count_if(outlook.forecast.go, [](const auto* each) { return is_living(*each); });
  for (InstanceView& each : outlook.forecast.come) {
    if (is_living(each) && room-- <= 0) {
      each.state = StateOfInstance::refused;
      each.reason = StateReason::limit;
    }
  }
}

}  // namespace

Forecast forecast(const Session& session, const std::vector<RuleView>& rules, const std::vector<MachineLink>& links) {
  Outlook outlook = {session, links, {rules, {}, {}, {}}};
  find_what_goes(outlook);
  for (std::size_t i = 0; i < rules.size(); ++i) {
    if (!is_kept(outlook, rules[i]) && is_watched(outlook, rules[i].from, rules[i].type)) {
      add_what_is_known(outlook, i);
    }
  }
  ask_links(outlook);
  apply_limit(outlook);
  std::ranges::stable_sort(outlook.forecast.come, {}, &InstanceView::rule);
  return outlook.forecast;
}
