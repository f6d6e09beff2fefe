// SPDX-License-Identifier: MIT
// `report`: everything that the other commands show, as one page for a browser.
//
// Promises: the page is one file that fetches nothing and runs nothing, and it says so to the browser too (a
// content security policy); names of strangers are text in it (html.h); nobody needs a script or a wide screen.
// However many services there are, what is not forwarded can be seen at once, and long lists are folded under
// their counts. Without a daemon the page says that.
//
// Read in this order: this header, html.h, report.cpp (what is in it, and the JSON), report_checks.cpp,
// report_page.cpp, report_map.cpp (links, rules and services), report_style.cpp.
#pragma once

#include <string>
#include <vector>

#include "mdnsproxyctl/doctor.h"
#include "mdnsproxyctl/html.h"
#include "mdnsproxyctl/schema.h"

enum class CheckResult { well, not_seen, warning, error };

// One row of the table of checks. The texts are made by `shown` where they hold a stranger's words.
struct ReportCheck {
  CheckResult result;
  std::string subject;
  std::string text;
  std::string cure;  // "": none is needed
};

// What one line of the rules list makes between two links, in one direction.
struct ReportRule {
  std::uint32_t line;  // 0: not known
  bool both_ways;      // the line makes the same in the other direction
  std::vector<std::string> types;
  std::vector<const InstanceView*> not_forwarded;  // the refused ones first, without the next
  std::ptrdiff_t own;                              // refused, since the daemon itself has forwarded them the other way
  std::vector<const InstanceView*> forwarded;      // by name
};

struct ReportWay {
  std::string from;
  std::string to;
  std::vector<ReportRule> rules;  // in the order of the list
};

struct ReportLink {
  RuleLink held;
  const MachineLink* now;  // null: gone
  std::vector<HealthFinding> findings;
};

struct Report {
  const Session& session;
  std::string host;                      // this machine's name
  std::vector<ReportCheck> checks;       // as report_checks has them
  std::vector<ReportLink> links;         // this, and what follows up to the events: empty without a running daemon
  std::vector<ReportWay> ways;           // in the order of the rules
  std::vector<const EventView*> events;  // of the last day, the newest first
  std::uint64_t events_from;             // the time from which on none is missing
};

// What there is to report, its checks being what the examination has found. The examination must outlive the result,
// which points into it.
Report report_of(const Examination& examination, const std::string& host);

// The whole page.
std::string report_page(const Report& report);

// The same as JSON.
Json report_json(const Report& report);

// --- Parts of it ----------------------------------------------------------------------------------------------------

// The rows of the table of checks: what is wrong, in the examination's order, then what could not be looked at, then
// what is well.
std::vector<ReportCheck> report_checks(const Examination& examination);

// "well", "not looked at", "warning" or "error".
const char* check_word(CheckResult result);

// Links, and between them rules and services.
Html report_map(const Report& report);

// The page's style sheet.
extern const HtmlConstant kReportStyle;
