// SPDX-License-Identifier: MIT
// For every way from a link to another: both links as boxes, the rules between them, and the services with an arrow, or
// with the reason why there is none. How it looks is the style sheet's business; on a narrow screen the same parts
// stand one below the other.
#include <algorithm>

#include "mdnsproxyctl/report.h"

namespace {

constexpr std::size_t kServicesAtOnce = 12;  // of a rule; a longer list is folded

Html counted(std::size_t count, const char* what) { return html_shown(std::to_string(count) + " " + what); }

// --- Links ---------------------------------------------------------------------------------------------------------

Html link_state(const ReportLink& link) {
  if (!link.findings.empty()) {
    return html_element("small class=\"bad\"", html_shown(link.findings.front().text));
  }
  std::string text = "up, index " + std::to_string(link.held.index);
  for (const std::string& address : link.now->addresses) {
    text += " \u00b7 " + address;
  }
  return html_element("small", html_shown(text));
}

Html link_box(const Report& report, const std::string& name) {
  const auto link = std::ranges::find(report.links, name, [](const ReportLink& each) { return each.held.name; });
  return html_element("div",
                      html_element("h3", html_name(name)) + (link != report.links.end() ? link_state(*link) : Html()));
}

// --- Services ------------------------------------------------------------------------------------------------------

Html since(const Report& report, const InstanceView& instance) {
  return html_shown(" for " + duration(age(instance.since, report.session.clocks)));
}

// Name, type where the rule has several, and where it is to be reached.
Html service_cell(const Report& report, const ReportRule& rule, const InstanceView& instance) {
  Html where;
  const auto add = [&](const Html& part) { where += where.markup.empty() ? part : html_markup(" \u00b7 ") + part; };
  if (rule.types.size() > 1) {
    add(html_text(report.session.state.view.rules[instance.rule].type));
  }
  if (!instance.host.empty()) {
    add(html_name(instance.host));
  }
  if (instance.port != 0) {
    add(html_shown("port " + std::to_string(instance.port)));
  }
  for (const std::string& address : instance.addresses) {
    add(html_shown(address));
  }
  return html_element("p", html_name(instance.name) + (where.markup.empty() ? Html() : html_element("small", where)));
}

Html forwarded_row(const Report& report, const ReportRule& rule, const InstanceView& instance) {
  const bool renamed = !instance.name_there.empty() && instance.name_there != instance.name;
  const Html there =
      renamed ? html_element("p class=\"new\"", html_name(instance.name_there) +
                                                    html_markup("<small>its own name was taken there</small>"))
              : html_element("p", html_name(instance.name));
  return html_element(
             "li", service_cell(report, rule, instance) +
                       html_element("p", html_markup("forwarded") + since(report, instance) + html_markup("<i></i>")) +
                       there) +
         html_markup("\n");
}

Html other_row(const Report& report, const ReportRule& rule, const InstanceView& instance) {
  const bool refused = instance.state == StateOfInstance::refused;
  const std::string reason = reason_sentence(instance.reason);
  const Html why = html_shown(!reason.empty() ? reason : "the DNS-SD library did not take it; the journal says why");
  const Html state = html_shown(state_word(instance.state)) + since(report, instance);
  return html_element(
             refused ? HtmlConstant("li class=\"bad\"") : HtmlConstant("li class=\"open\""),
             service_cell(report, rule, instance) +
                 html_element("p", html_markup("<i></i>") + html_element("span", why + html_element("small", state)))) +
         html_markup("\n");
}

template <typename ToRow>
Html rows_of(const Report& report, const ReportRule& rule, const std::vector<const InstanceView*>& services,
             ToRow to_row) {
  Html rows;
  for (const InstanceView* const each : services) {
    rows += to_row(report, rule, *each);
  }
  return rows;
}

// The list as it is, or folded under its count when it is long.
Html list_of(std::size_t count, const char* what, const Html& list) {
  return count <= kServicesAtOnce ? list
                                  : html_element("details", html_element("summary", counted(count, what)) + list);
}

// --- Rules ---------------------------------------------------------------------------------------------------------

std::string types_text(const std::vector<std::string>& types) {
  std::string text;
  for (const std::string& each : types) {
    text += (text.empty() ? "" : ", ") + shown(each);
  }
  return text;
}

Html rule_counts(const ReportRule& rule) {
  const bool none = rule.not_forwarded.empty() && rule.forwarded.empty();
  Html counts = none ? html_markup("no service")
                     : counted(rule.forwarded.size(), "forwarded, ") + counted(rule.not_forwarded.size(), "not");
  if (rule.own > 0) {
    counts += html_shown("; " + std::to_string(rule.own) + " that went the other way and do not come back");
  }
  return html_element("small", counts);
}

Html rule_title(const ReportRule& rule) {
  const Html line = rule.line != 0 ? html_shown("line " + std::to_string(rule.line)) : html_markup("rule");
  const Html direction = html_markup(rule.both_ways ? HtmlConstant(", both ways: ") : HtmlConstant(", one way: "));
  return html_element("p class=\"title\"",
                      html_element("b", line) + direction + html_shown(types_text(rule.types)) + rule_counts(rule));
}

Html rule_box(const Report& report, const ReportRule& rule) {
  Html box = rule_title(rule);
  if (!rule.not_forwarded.empty()) {
    const Html rows = rows_of(report, rule, rule.not_forwarded, other_row);
    box += list_of(rule.not_forwarded.size(), "not forwarded", html_element("ul", rows));
  }
  if (!rule.forwarded.empty()) {
    const Html rows = rows_of(report, rule, rule.forwarded, forwarded_row);
    box += list_of(rule.forwarded.size(), "forwarded", html_element("ul class=\"there\"", rows));
  }
  return html_element("div class=\"rule\"", box);
}

Html way_box(const Report& report, const ReportWay& way) {
  Html box = html_element("div class=\"ends\"",
                          link_box(report, way.from) + html_markup("<p>\u2192</p>") + link_box(report, way.to));
  for (const ReportRule& each : way.rules) {
    box += rule_box(report, each);
  }
  return html_element("div class=\"way\"", box);
}

Html hint(const StateView& view) {
  Html text;
  if (!std::ranges::all_of(view.instances, [](const auto& each) { return each.state == StateOfInstance::forwarded; })) {
    text += html_markup("<code>mdnsproxyctl why NAME</code> follows a service step by step and names the cure. ");
  }
  if (view.changing > 0) {
    text += html_shown(std::to_string(view.changing) + " records were changing and are not shown.");
  }
  return text.markup.empty() ? text : html_element("p class=\"note\"", text);
}

}  // namespace

Html report_map(const Report& report) {
  Html map = html_markup("<h2>Links, rules and services</h2>") + hint(report.session.state.view);
  if (report.ways.empty()) {
    map += html_markup("<p class=\"note\">There is no rule, and so no link.</p>");
  }
  for (const ReportWay& each : report.ways) {
    map += way_box(report, each);
  }
  return html_element("section", map);
}
