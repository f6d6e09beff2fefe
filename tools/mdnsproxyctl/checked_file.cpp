// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/checked_file.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "mdnsproxy-check/report.h"
#include "mdnsproxy-check/verdict.h"
#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/rules_file.h"

namespace {

CheckRequest request_for(const Session& session, const std::string& rules_file) {
  const Interfaces here = interfaces_here();
  return {session.options.services_file, rules_file, session.options.settings_file, false, here.names, here.faults};
}

CheckedFile result_of(const Verdict& verdict, const CheckRequest& request) {
  CheckedFile checked;
  checked.accepted = !verdict.end;
  checked.findings = Json::parse(json_report(verdict, request))["findings"];
  checked.lines = finding_lines(verdict.findings);
  for (const Installation& each : verdict.installations) {
    if (checked.accepted && !each.repeated) {
      checked.rules.push_back({each.position.line, each.if_from, each.if_to, 0, 0, each.service_type, 0});
    }
  }
  return checked;
}

// --- From one process to another -----------------------------------------------------------------------------------

std::string packed(const CheckedFile& checked) {
  Json rules = Json::array();
  for (const RuleView& each : checked.rules) {
    rules.push_back({each.line, each.from, each.to, each.type});
  }
  const Json all = {
      {"accepted", checked.accepted}, {"findings", checked.findings}, {"lines", checked.lines}, {"rules", rules}};
  return all.dump(-1, ' ', true, Json::error_handler_t::replace);
}

CheckedFile unpacked(const std::string& bytes) {
  const Json all = Json::parse(bytes, nullptr, false);
  if (all.is_discarded()) {
    return {false, Json::array(), "The check as the daemon's user did not come to its end.\n", {}};
  }
  CheckedFile checked = {all["accepted"].get<bool>(), all["findings"], all["lines"].get<std::string>(), {}};
  for (const Json& each : all["rules"]) {
    checked.rules.push_back({each[0].get<std::uint32_t>(), each[1].get<std::string>(), each[2].get<std::string>(), 0, 0,
                             each[3].get<std::string>(), 0});
  }
  return checked;
}

std::string read_all(int file) {
  std::string bytes;
  std::array<char, 4096> part;
  ssize_t got = 0;
  while ((got = read(file, part.data(), part.size())) > 0 || (got < 0 && errno == EINTR)) {
    bytes.append(part.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
  }
  return bytes;
}

void replace_each(std::string& text, const std::string& what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
}

// --- As another user -----------------------------------------------------------------------------------------------

// A file in memory is there for nobody else, and whoever may not enter the directory of a draft can read this one.
int file_in_memory(const std::string& text) {
  const int file = memfd_create("mdnsproxyctl", MFD_CLOEXEC);
  if (file != -1 && !write_all(file, text)) {
    close(file);
    return -1;
  }
  return file;
}

CheckedFile check_in_memory(const Session& session, int file, const std::string& path) {
  const std::string held = "/proc/self/fd/" + std::to_string(file);
  const CheckRequest request = request_for(session, held);
  Verdict verdict = check_files(request);
  for (Finding& each : verdict.findings) {
    each.file = each.file == held ? path : each.file;
    replace_each(each.message, held, path);
  }
  return result_of(verdict, request);
}

// Never returns.
[[noreturn]] void check_as(const Session& session, int file, const std::string& path, const Reader& reader,
                           int answer) {
  const bool told = become(reader) && write_all(answer, packed(check_in_memory(session, file, path)));
  _exit(told ? 0 : 1);
}

std::string answer_of_child(const Session& session, int file, const std::string& path, const Reader& reader) {
  int ends[2];
  if (pipe(ends) != 0) {
    return "";
  }
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    check_as(session, file, path, reader, ends[1]);
  }
  close(ends[1]);
  std::string answer = child != -1 ? read_all(ends[0]) : "";
  close(ends[0]);
  while (child != -1 && waitpid(child, nullptr, 0) == -1 && errno == EINTR) {
  }
  return answer;
}

}  // namespace

CheckedFile check_rules_file(const Session& session, const std::string& path) {
  const CheckRequest request = request_for(session, path);
  return result_of(check_files(request), request);
}

CheckedFile check_rules_text(const Session& session, const std::string& text, const std::string& path,
                             const Reader& reader) {
  const int file = file_in_memory(text);
  const std::string answer = file != -1 ? answer_of_child(session, file, path, reader) : "";
  if (file != -1) {
    close(file);
  }
  return unpacked(answer);
}

bool same_way(const RuleView& one, const RuleView& other) {
  return one.type == other.type && one.from == other.from && one.to == other.to;
}
