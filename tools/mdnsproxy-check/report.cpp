// SPDX-License-Identifier: MIT
#include "mdnsproxy-check/report.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

const char* severity_text(Severity severity) { return severity == Severity::error ? "error" : "warning"; }

// Values come from files: a line break in one must not make two lines of a message.
std::string on_one_line(const std::string& text) {
  std::string line;
  for (const char c : text) {
    const unsigned char byte = static_cast<unsigned char>(c);
    line += byte < 0x20 || byte == 0x7f ? formatted("\\x%02x", byte) : std::string(1, c);
  }
  return line;
}

std::string status_text(int status) {
  const int exit_status = status & 0xff;  // the kernel keeps eight bits
  return exit_status == status ? formatted("status %d", status)
                               : formatted("status %d, exit status %d", status, exit_status);
}

std::string finding_line(const Finding& finding) {
  const std::string end = finding.status != 0 ? " [ends the daemon with " + status_text(finding.status) + "]" : "";
  return formatted("%s:%u:%u: %s: ", finding.file.c_str(), finding.position.line, finding.position.column,
                   severity_text(finding.severity)) +
         on_one_line(finding.message) + end + "; cure: " + on_one_line(finding.cure) + "\n";
}

// --- The table -------------------------------------------------------------------------------------------------------

using Row = std::array<std::string, 5>;

std::vector<Row> rows_of(const Verdict& verdict, const CheckRequest& request) {
  std::vector<Row> rows = {{"FROM", "TO", "TYPE", "SERVICE", "RULE"}};
  for (const Installation& each : verdict.installations) {
    if (!each.repeated) {
      rows.push_back({on_one_line(each.if_from), on_one_line(each.if_to), on_one_line(each.service_type),
                      each.service.empty() ? "-" : on_one_line(each.service),
                      formatted("%s:%u", request.rules_file.c_str(), each.position.line)});
    }
  }
  return rows;
}

std::string table_of(const std::vector<Row>& rows) {
  Row::size_type last = rows.front().size() - 1;
  std::string table;
  for (const Row& row : rows) {
    table += "  ";
    for (std::size_t column = 0; column < last; ++column) {
      std::size_t width = 0;
      for (const Row& each : rows) {
        width = std::max(width, each[column].size());
      }
      table += row[column] + std::string(width - row[column].size() + 2, ' ');
    }
    table += row[last] + "\n";
  }
  return table;
}

std::string forwarding_text(const Verdict& verdict, const CheckRequest& request) {
  if (verdict.end) {
    return "Nothing will be forwarded: the daemon ends with " + status_text(verdict.end->status) + ".\n";
  }
  const std::vector<Row> rows = rows_of(verdict, request);
  if (rows.size() == 1) {
    return "Nothing will be forwarded: there is no rule.\n";
  }
  return "Will be forwarded:\n" + table_of(rows);
}

// --- JSON ------------------------------------------------------------------------------------------------------------

Json finding_json(const Finding& finding) {
  Json object = {{"file", finding.file},
                 {"line", finding.position.line},
                 {"column", finding.position.column},
                 {"message", finding.message},
                 {"severity", severity_text(finding.severity)},
                 {"cure", finding.cure}};
  if (finding.status != 0) {
    object["status"] = finding.status;
  }
  return object;
}

Json installation_json(const Installation& each) {
  Json object = {{"from", each.if_from}, {"to", each.if_to}, {"type", each.service_type}, {"line", each.position.line}};
  object["service"] = each.service.empty() ? Json(nullptr) : Json(each.service);
  object["inverse"] = each.inverse;
  return object;
}

Json forwarding_json(const Verdict& verdict) {
  Json forwarding = Json::array();
  for (const Installation& each : verdict.installations) {
    if (!verdict.end && !each.repeated) {
      forwarding.push_back(installation_json(each));
    }
  }
  return forwarding;
}

}  // namespace

std::string finding_lines(const Findings& findings) {
  std::string lines;
  for (const Finding& each : findings) {
    lines += finding_line(each);
  }
  return lines;
}

std::string text_report(const Verdict& verdict, const CheckRequest& request) {
  return finding_lines(verdict.findings) + forwarding_text(verdict, request);
}

std::string json_report(const Verdict& verdict, const CheckRequest& request) {
  Json findings = Json::array();
  for (const Finding& each : verdict.findings) {
    findings.push_back(finding_json(each));
  }
  const Json report = {{"services_file", request.services_file},
                       {"rules_file", request.rules_file},
                       {"settings_file", request.settings_file},
                       {"exit_status", exit_status(verdict)},
                       {"findings", findings},
                       {"forwarding", forwarding_json(verdict)}};
  return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}
