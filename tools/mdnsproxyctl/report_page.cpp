// SPDX-License-Identifier: MIT
// The page from its head to its end, but for the map of links, rules and services.
#include <algorithm>

#include "mdnsproxyctl/report.h"

namespace {

constexpr std::size_t kEventsAtOnce = 20;  // further ones are folded

Html number(std::ptrdiff_t value) { return html_shown(std::to_string(value)); }

// "2026-11-22 07:20:00", in UTC.
Html time_text(std::uint64_t time, const Clocks& clocks) {
  std::string text = utc_time(time, clocks);
  std::ranges::replace(text, 'T', ' ');
  text.pop_back();
  return html_shown(text);
}

// --- Head ----------------------------------------------------------------------------------------------------------

Html head(const Report& report) {
  const Clocks& clocks = report.session.clocks;
  // Whatever a browser may find in the page, it runs none of it, and fetches nothing.
  return html_element(
      "head",
      html_markup(
          "<meta charset=\"utf-8\"/>"
          "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'; "
          "img-src data:; base-uri 'none'; form-action 'none'\"/>"
          "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>"
          "<meta name=\"color-scheme\" content=\"light dark\"/>"
          "<link rel=\"icon\" href=\"data:,\"/>") +
          html_element("title", html_markup("mdnsproxy on ") + html_text(report.host) + html_markup(", ") +
                                    time_text(clocks.boottime, clocks)) +
          html_element("style", html_markup(kReportStyle)));
}

Html headline(const Report& report) {
  const Session& session = report.session;
  Html facts = html_element(
      "span", html_markup("made ") + time_text(session.clocks.boottime, session.clocks) + html_markup(" UTC"));
  const auto add = [&](const Html& fact) { facts += html_markup(" ") + html_element("span", fact); };
  if (session.is_running()) {
    const std::uint64_t started = session.state.view.started;
    add(html_markup("running for ") + html_shown(duration(age(started, session.clocks))) + html_markup(", since ") +
        time_text(started, session.clocks) + html_markup(" UTC"));
  }
  if (session.has_state()) {
    add(html_markup("version ") + html_name(session.state.view.version));
    add(html_markup("rules of ") + html_name(session.state.view.rules_file));
  }
  add(html_markup("state file ") + html_name(session.options.state_file));
  return html_element("header", html_element("h1", html_markup("mdnsproxy on ") + html_name(report.host)) +
                                    html_element("p class=\"facts\"", facts));
}

// --- Counts --------------------------------------------------------------------------------------------------------

// "2 link local only, 1 limit".
Html reasons(const StateView& view, StateOfInstance state) {
  std::string text;
  for (std::size_t i = 1; i <= static_cast<std::size_t>(StateReason::conflict); ++i) {
    const StateReason reason = static_cast<StateReason>(i);
    const auto count = std::ranges::count_if(
        view.instances, [&](const InstanceView& each) { return each.state == state && each.reason == reason; });
    if (count > 0) {
      text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + reason_word(reason);
    }
  }
  std::ranges::replace(text, '_', ' ');
  return html_shown(text);
}

Html tile(HtmlConstant start, const Html& figure, const char* what, const Html& detail) {
  const Html small = detail.markup.empty() ? Html() : html_element("small", detail);
  return html_element(start, html_element("b", figure) + html_markup(" ") + html_shown(what) + small);
}

Html limit_tile(const StateView& view) {
  const auto living = count_living(view);
  const bool full = std::ranges::count(view.instances, StateReason::limit, &InstanceView::reason) > 0;
  return tile(full ? HtmlConstant("li class=\"bad\"") : HtmlConstant("li"),
              number(living) + html_markup(" <small>/ ") + number(view.limit) + html_markup("</small>"), "of the limit",
              html_markup("at most ") + number(static_cast<std::ptrdiff_t>(view.counter(StateCounter::high_water))) +
                  html_markup(" until now"));
}

Html checks_tile(const std::vector<ReportCheck>& checks) {
  const auto errors = std::ranges::count(checks, CheckResult::error, &ReportCheck::result);
  const auto warnings = std::ranges::count(checks, CheckResult::warning, &ReportCheck::result);
  const std::ptrdiff_t all =
      std::ssize(checks) - std::ranges::count(checks, CheckResult::not_seen, &ReportCheck::result);
  if (errors + warnings == 0) {
    return tile("li class=\"good\"", number(all), all == 1 ? "check is well" : "checks are well", {});
  }
  const Html detail = html_markup("errors: ") + number(errors) + html_markup(", warnings: ") + number(warnings);
  return tile(errors > 0 ? HtmlConstant("li class=\"bad\"") : HtmlConstant("li class=\"open\""),
              number(errors + warnings) + html_markup(" <small>/ ") + number(all) + html_markup("</small>"),
              "checks failed", detail);
}

Html tiles(const Report& report) {
  const StateView& view = report.session.state.view;
  const StateCounts counts = count_states(view);
  return html_element("ul class=\"tiles\"",
                      tile(counts.forwarded > 0 ? HtmlConstant("li class=\"good\"") : HtmlConstant("li"),
                           number(counts.forwarded), "forwarded", {}) +
                          tile(counts.waiting > 0 ? HtmlConstant("li class=\"open\"") : HtmlConstant("li"),
                               number(counts.waiting), "waiting", reasons(view, StateOfInstance::waiting)) +
                          tile(counts.refused > 0 ? HtmlConstant("li class=\"bad\"") : HtmlConstant("li"),
                               number(counts.refused), "refused", reasons(view, StateOfInstance::refused)) +
                          limit_tile(view) + checks_tile(report.checks));
}

// --- Checks --------------------------------------------------------------------------------------------------------

Html check_row(const ReportCheck& check) {
  constexpr HtmlConstant kCells[] = {"td class=\"good\"", "td class=\"gone\"", "td class=\"open\"", "td class=\"bad\""};
  const std::size_t result = static_cast<std::size_t>(check.result);
  return html_element("tr", html_element(kCells[result], html_shown(check_word(check.result))) +
                                html_element("td", html_element("bdi", html_shown(check.subject))) +
                                html_element("td", html_shown(check.text)) +
                                html_element("td", html_shown(check.cure))) +
         html_markup("\n");
}

Html checks_table(const Html& rows) {
  return html_element(
      "table class=\"checks\"",
      html_markup("<thead><tr><th>result</th><th>of</th><th>what was found</th><th>cure</th></tr></thead>") +
          html_element("tbody", rows));
}

Html checks_section(const Report& report) {
  Html failed;
  Html folded;
  std::ptrdiff_t well = 0;
  std::ptrdiff_t not_seen = 0;
  for (const ReportCheck& each : report.checks) {
    const bool has_failed = each.result == CheckResult::warning || each.result == CheckResult::error;
    (has_failed ? failed : folded) += check_row(each);
    well += each.result == CheckResult::well ? 1 : 0;
    not_seen += each.result == CheckResult::not_seen ? 1 : 0;
  }
  Html section = html_markup("<h2>Checks</h2>");
  section += failed.markup.empty() ? Html() : checks_table(failed);
  if (!folded.markup.empty()) {
    Html summary =
        number(well) + html_markup(well == 1 ? HtmlConstant(" check is well") : HtmlConstant(" checks are well"));
    summary += not_seen > 0 ? html_markup(", not looked at: ") + number(not_seen) : Html();
    section += html_element("details", html_element("summary", summary) + checks_table(folded));
  }
  return html_element("section", section);
}

// --- Comings and goings --------------------------------------------------------------------------------------------

Html event_row(const Session& session, const EventView& event) {
  constexpr HtmlConstant kCells[] = {"td class=\"gone\"", "td class=\"good\"", "td class=\"open\"", "td class=\"bad\""};
  const RuleView& rule = session.state.view.rules[event.rule];
  const std::string reason = reason_sentence(event.reason);
  const std::string what = state_word(event.after) + (reason.empty() ? "" : ": " + reason);
  return html_element("tr",
                      html_element("td", time_text(event.time, session.clocks)) +
                          html_element("td", html_name(event.name)) + html_element("td", html_text(rule.type)) +
                          html_element("td", html_text(rule.from) + html_markup(" \u2192 ") + html_text(rule.to)) +
                          html_element(kCells[static_cast<std::size_t>(event.after)], html_shown(what))) +
         html_markup("\n");
}

Html events_table(const Report& report, std::size_t first, std::size_t end) {
  Html rows;
  for (std::size_t i = first; i < end; ++i) {
    rows += event_row(report.session, *report.events[i]);
  }
  return html_element(
      "table class=\"events\"",
      html_markup(
          "<thead><tr><th>time (UTC)</th><th>service</th><th>type</th><th>way</th><th>state</th></tr></thead>") +
          html_element("tbody", rows));
}

Html events_section(const Report& report) {
  const std::size_t count = report.events.size();
  Html section = html_markup("<h2>Comings and goings of the last day</h2>");
  section += html_element("p class=\"note\"",
                          html_markup("Known from ") + time_text(report.events_from, report.session.clocks) +
                              html_markup(" UTC on, the newest first. ") +
                              html_markup(count == 0 ? HtmlConstant("There were none.") : HtmlConstant("")));
  if (count > 0) {
    section += events_table(report, 0, std::min(count, kEventsAtOnce));
  }
  if (count > kEventsAtOnce) {
    const Html summary = number(static_cast<std::ptrdiff_t>(count - kEventsAtOnce)) + html_markup(" earlier ones");
    section += html_element("details", html_element("summary", summary) + events_table(report, kEventsAtOnce, count));
  }
  return html_element("section", section);
}

}  // namespace

std::string report_page(const Report& report) {
  const Session& session = report.session;
  Html body = headline(report);
  if (session.is_running()) {
    body += tiles(report);
  } else {
    body += html_element("p class=\"banner\"",
                         html_markup(session.has_state() ? HtmlConstant("The daemon is not running.")
                                                         : HtmlConstant("Nothing is known of the daemon.")));
  }
  body += checks_section(report);
  if (session.is_running()) {
    body += report_map(report);
  }
  if (session.has_state()) {
    body += events_section(report);
  }
  return html_markup("<!DOCTYPE html>\n").markup +
         html_element("html lang=\"en\"", head(report) + html_markup("\n") + html_element("body", body)).markup + "\n";
}
