// SPDX-License-Identifier: MIT
// Figures in the Prometheus text format, version 0.0.4: for each HELP, TYPE and samples, in base units, without names
// of services.

#include <algorithm>
#include <cstdio>
#include <utility>

#include "mdnsproxyctl/commands.h"
#include "mdnsproxyctl/health.h"
#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/output_file.h"

namespace {

using Labels = std::vector<std::pair<std::string, std::string>>;

struct Sample {
  Labels labels;
  double value;
};

struct Metric {
  std::string name;
  std::string help;
  const char* type;  // "gauge" or "counter"
  std::vector<Sample> samples;
};

struct CounterMetric {
  StateCounter counter;
  const char* name;
  const char* help;
};

constexpr CounterMetric kCounters[] = {
    {StateCounter::found, "mdnsproxy_services_found_total",
     "Services that appeared on a link where a rule looks for them."},
    {StateCounter::gone, "mdnsproxy_services_gone_total", "Services that went away again."},
    {StateCounter::forwarded, "mdnsproxy_services_forwarded_total",
     "Services that came to be announced on another link."},
    {StateCounter::renamed, "mdnsproxy_services_renamed_total", "Services that were announced under another name."},
    {StateCounter::limit, "mdnsproxy_refused_limit_total", "Services refused since there were too many."},
    {StateCounter::through_gateway, "mdnsproxy_refused_through_gateway_total",
     "Services refused since they came through a gateway."},
    {StateCounter::conflict, "mdnsproxy_refused_conflict_total", "Services refused since their name was taken."},
    {StateCounter::refused_otherwise, "mdnsproxy_refused_otherwise_total",
     "Services that the DNS-SD library did not take."},
    {StateCounter::addresses, "mdnsproxy_addresses_changed_total",
     "Addresses of hosts that were announced or changed."},
    {StateCounter::left_out, "mdnsproxy_state_left_out_total", "Services that had no room in the state file."},
    {StateCounter::wakes, "mdnsproxy_wakes_total", "Passes of the event loop."},
};

struct LinkMetric {
  std::uint64_t LinkView::*figure;
  const char* name;
  const char* help;
};

constexpr LinkMetric kLinkFigures[] = {
    {&LinkView::received, "mdnsproxy_link_received_packets_total", "Multicast DNS packets of others on a link."},
    {&LinkView::ignored, "mdnsproxy_link_ignored_packets_total", "Packets beyond what one host may send."},
    {&LinkView::lost, "mdnsproxy_link_lost_packets_total", "Packets that the system had no room for."},
    {&LinkView::sent, "mdnsproxy_link_sent_packets_total", "Packets sent to a link."},
    {&LinkView::conflicts, "mdnsproxy_link_conflicts_total", "Names that turned out to be another host's."},
};

Metric gauge(const char* name, const char* help, double value) { return {name, help, "gauge", {{{}, value}}}; }

Metric services_metric(const StateView& view) {
  Metric metric = {"mdnsproxy_services", "Services by state and reason.", "gauge", {}};
  for (const StateOfInstance state : {StateOfInstance::forwarded, StateOfInstance::waiting, StateOfInstance::refused}) {
    for (std::size_t i = 0; i <= static_cast<std::size_t>(StateReason::conflict); ++i) {
      const StateReason reason = static_cast<StateReason>(i);
      const auto count = std::ranges::count_if(
          view.instances, [&](const InstanceView& each) { return each.state == state && each.reason == reason; });
      if (count > 0 || i == 0) {
        metric.samples.push_back(
            {{{"state", state_word(state)}, {"reason", reason_word(reason)}}, static_cast<double>(count)});
      }
    }
  }
  return metric;
}

Metric links_metric(const StateView& view) {
  Metric metric = {
      "mdnsproxy_link_well", "Whether a link that rules name is there, up, and able to multicast.", "gauge", {}};
  const std::vector<MachineLink> links = machine_links();
  for (const RuleLink& each : rule_links(view)) {
    metric.samples.push_back({{{"link", each.name}}, link_findings(each.name, each.index, links).empty() ? 1.0 : 0.0});
  }
  return metric;
}

Metric link_metric(const Session& session, const LinkMetric& figure) {
  Metric metric = {figure.name, figure.help, "counter", {}};
  for (const RuleLink& each : rule_links(session.state.view)) {
    if (const LinkView* const link = link_figures(session, each.index); link != nullptr) {
      metric.samples.push_back({{{"link", each.name}}, static_cast<double>(link->*figure.figure)});
    }
  }
  return metric;
}

std::vector<Metric> metrics_of(const Session& session) {
  std::vector<Metric> metrics = {gauge("mdnsproxy_up", "Whether the daemon runs.", session.is_running() ? 1 : 0)};
  if (!session.is_running()) {
    return metrics;
  }
  const StateView& view = session.state.view;
  const std::uint64_t started = session.clocks.realtime - age(view.started, session.clocks);
  metrics.push_back(gauge("mdnsproxy_start_time_seconds", "When the daemon started, in seconds since 1970.",
                          static_cast<double>(started) / 1e9));
  metrics.push_back(gauge("mdnsproxy_rules", "Rules, each for one type and one direction.",
                          static_cast<double>(view.rules.size()) + view.rules_left_out));
  metrics.push_back(services_metric(view));
  metrics.push_back(gauge("mdnsproxy_services_limit", "Services that may live at a time.", view.limit));
  metrics.push_back(gauge("mdnsproxy_services_high_water", "Most services that have lived at a time.",
                          static_cast<double>(view.counter(StateCounter::high_water))));
  metrics.push_back(links_metric(view));
  for (const LinkMetric& each : kLinkFigures) {
    metrics.push_back(link_metric(session, each));
  }
  for (const CounterMetric& each : kCounters) {
    metrics.push_back({each.name, each.help, "counter", {{{}, static_cast<double>(view.counter(each.counter))}}});
  }
  std::erase_if(metrics, [](const Metric& metric) { return metric.samples.empty(); });
  return metrics;
}

std::string label_value(const std::string& value) {
  std::string escaped;
  for (const char c : shown(value)) {
    escaped += c == '\\' || c == '"' ? std::string("\\") + c : std::string(1, c);
  }
  return escaped;
}

std::string sample_text(const std::string& name, const Sample& sample) {
  std::string labels;
  for (const auto& [label, value] : sample.labels) {
    labels += (labels.empty() ? "{" : ",") + label + "=\"" + label_value(value) + "\"";
  }
  char number[64];
  std::snprintf(number, sizeof number, "%.15g", sample.value);
  return name + labels + (labels.empty() ? " " : "} ") + number + "\n";
}

std::string text_of(const std::vector<Metric>& metrics) {
  std::string text;
  for (const Metric& metric : metrics) {
    text += "# HELP " + metric.name + " " + metric.help + "\n# TYPE " + metric.name + " " + metric.type + "\n";
    for (const Sample& sample : metric.samples) {
      text += sample_text(metric.name, sample);
    }
  }
  return text;
}

Json json_of(const std::vector<Metric>& metrics) {
  Json list = Json::array();
  for (const Metric& metric : metrics) {
    for (const Sample& sample : metric.samples) {
      Json labels = Json::object();
      for (const auto& [label, value] : sample.labels) {
        labels[label] = value;
      }
      list.push_back({{"name", metric.name}, {"type", metric.type}, {"labels", labels}, {"value", sample.value}});
    }
  }
  return list;
}

}  // namespace

int run_metrics(const Session& session, const std::string& file) {
  const std::vector<Metric> metrics = metrics_of(session);
  Json answer = new_answer(session);
  answer["metrics"] = json_of(metrics);
  return write_answer(session, file, answer, text_of(metrics), base_status(session));
}
