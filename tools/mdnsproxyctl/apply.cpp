// SPDX-License-Identifier: MIT
// A rules list is checked, installed and put to work, or else everything is as it was.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "mdnsproxyctl/checked_file.h"
#include "mdnsproxyctl/commands.h"
#include "mdnsproxyctl/difference.h"
#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/rules_file.h"
#include "mdnsproxyctl/unit.h"

namespace {

// Files are checked, what runs withdraws what it has announced (three seconds at most), and the machine may be busy;
// then each rule takes half a second.
constexpr unsigned kSecondsToStart = 30;
constexpr unsigned kRulesInASecond = 2;

// One application, from the files to the outcome.
struct Application {
  const Session& session;
  ApplyRequest request;
  std::string place;                // of the installed list, without symbolic links
  std::optional<RulesFile> before;  // what is there; nothing: no file
  RulesFile after;
  CheckedFile checked;
  std::vector<LineChange> changes;
  std::vector<RuleView> begin;  // rules that the daemon does not have yet
  std::vector<RuleView> end;    // rules that it has no more then
  std::string outcome;          // a word of the schema
  std::string detail;           // a sentence for a person
  int status = kUnwell;
};

void ends(Application& work, int status, const std::string& outcome, const std::string& detail) {
  work.outcome = outcome;
  work.detail = detail;
  work.status = status;
}

std::string file_text(const std::string& path) { return shown(path) + ": " + std::strerror(errno); }

// --- Looking -------------------------------------------------------------------------------------------------------

std::string without_links(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? resolved : path;
}

// False: the application has ended. So it is for those below.
bool read_files(Application& work) {
  work.before = read_rules_file(work.place);
  if (!work.before && errno != ENOENT) {
    ends(work, kUnwell, "failed", file_text(work.place));
    return false;
  }
  const bool is_given = !work.request.file.empty();
  const std::optional<RulesFile> given = is_given ? read_rules_file(work.request.file) : work.before;
  if (!given) {
    ends(work, kUnwell, "failed", file_text(is_given ? work.request.file : work.place));
    return false;
  }
  work.after = work.before.value_or(RulesFile());
  work.after.text = given->text;
  return true;
}

// What the one list has and the other has not.
std::vector<RuleView> missing_in(const std::vector<RuleView>& others, const std::vector<RuleView>& rules) {
  std::vector<RuleView> missing;
  std::ranges::copy_if(rules, std::back_inserter(missing), [&](const RuleView& rule) {
    return std::ranges::none_of(others, [&](const RuleView& each) { return same_way(each, rule); });
  });
  return missing;
}

bool check_file(Application& work) {
  const Reader reader = daemon_reader();
  const std::string& name = work.request.file.empty() ? work.place : work.request.file;
  work.checked = check_rules_text(work.session, work.after.text, name, reader);
  work.changes = line_changes(work.before ? work.before->text : "", work.after.text);
  if (!work.checked.accepted) {
    ends(work, kUnwell, "rejected", "The daemon would end with this file; nothing was changed.");
    return false;
  }
  const std::vector<RuleView> now = work.session.is_running() ? work.session.state.view.rules : std::vector<RuleView>();
  work.begin = missing_in(now, work.checked.rules);
  work.end = missing_in(work.checked.rules, now);
  if (work.before && !can_read(work.place, reader)) {
    const std::string place = shown(work.place);
    ends(work, kUnwell, "rejected", "The daemon's user cannot read " + place + "; cure: chmod o+r " + place);
    return false;
  }
  return true;
}

// --- Changing ------------------------------------------------------------------------------------------------------

bool is_changed(const Application& work) { return !work.before || work.before->text != work.after.text; }

// For the new rules as well as for the old ones.
unsigned patience(const Application& work) {
  const std::size_t rules = work.checked.rules.size() + work.end.size();
  return kSecondsToStart + static_cast<unsigned>(rules) / kRulesInASecond;
}

// Puts back what was there. False, and errno says why: the new file is still there.
bool put_back(const Application& work) {
  return work.before ? replace_rules_file(work.place, *work.before) : unlink(work.place.c_str()) == 0;
}

// A half-done application is worse than none: these signals wait until a place where it can be taken back.
void hold_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int each : {SIGHUP, SIGINT, SIGTERM}) {
    sigaddset(&signals, each);
  }
  sigprocmask(SIG_BLOCK, &signals, nullptr);
}

void take_back(Application& work, const std::string& why) {
  if (!is_changed(work)) {
    ends(work, kUnwell, "failed", "The daemon does not run: " + why + ".");
    return;
  }
  if (!put_back(work)) {
    ends(work, kUnwell, "failed", why + ", and the old file could not be put back: " + file_text(work.place));
    return;
  }
  const Reloaded again = reload_unit(patience(work), false);
  ends(work, kUnwell, "restored",
       "The old file is back, since " + why + ". " +
           (again.well ? "The daemon runs with the old one, process " + std::to_string(again.pid) + "."
                       : "The daemon does not run with that one either: " + again.why + "."));
}

void install(Application& work) {
  hold_signals();
  if (is_changed(work) && !replace_rules_file(work.place, work.after)) {
    ends(work, kUnwell, "failed", file_text(work.place) + "; nothing was changed.");
    return;
  }
  if (!systemd_runs()) {
    ends(work, kWorthALook, "installed",
         shown(work.place) +
             " is installed. systemd does not run here: restart the daemon by what has started it, and "
             "see then what mdnsproxyctl status says.");
    return;
  }
  const Reloaded reloaded = reload_unit(patience(work), true);
  if (!reloaded.well) {
    take_back(work, reloaded.why);
    return;
  }
  ends(work, kWell, "applied", "The daemon runs with it, process " + std::to_string(reloaded.pid) + ".");
}

void carry_out(Application& work) {
  if (geteuid() != 0) {
    ends(work, kUnwell, "failed", "Only root may do that.");
    return;
  }
  work.place = without_links(work.request.installed);
  const DirectoryLock lock(work.place);
  if (!lock.held() && !work.request.dry_run) {
    ends(work, kUnwell, "failed", "Somebody else applies a rules list just now; nothing was changed.");
  } else if (read_files(work) && check_file(work)) {
    if (work.request.dry_run) {
      ends(work, kWell, "checked", "Nothing was changed.");
    } else {
      install(work);
    }
  }
}

// --- The answer ----------------------------------------------------------------------------------------------------

std::string way_text(const RuleView& rule) {
  return shown(rule.type) + " from " + shown(rule.from) + " to " + shown(rule.to) + "\n";
}

std::string text_of(const Application& work) {
  std::string text = work.checked.lines;
  for (const LineChange& each : work.changes) {
    text += (each.added ? "+" : "-") + std::to_string(each.number) + "  " + shown(each.line) + "\n";
  }
  for (const RuleView& each : work.end) {
    text += "no longer forwarded: " + way_text(each);
  }
  for (const RuleView& each : work.begin) {
    text += "forwarded from now on: " + way_text(each);
  }
  return text + work.detail + "\n";
}

Json ways_json(const std::vector<RuleView>& rules) {
  Json list = Json::array();
  for (const RuleView& each : rules) {
    list.push_back({{"type", each.type}, {"from", each.from}, {"to", each.to}});
  }
  return list;
}

Json json_of(const Application& work) {
  Json answer = new_answer(work.session);
  answer["outcome"] = work.outcome;
  answer["detail"] = work.detail;
  answer["file"] = work.place;
  answer["findings"] = work.checked.findings.is_array() ? work.checked.findings : Json::array();
  answer["difference"] = Json::array();
  for (const LineChange& each : work.changes) {
    answer["difference"].push_back({{"change", each.added ? "+" : "-"}, {"line", each.number}, {"text", each.line}});
  }
  answer["begin"] = ways_json(work.begin);
  answer["end"] = ways_json(work.end);
  return answer;
}

}  // namespace

int run_apply(const Session& session, const ApplyRequest& request) {
  Application work = {session, request, request.installed, std::nullopt, {}, {}, {}, {}, {}, "", "", kUnwell};
  carry_out(work);
  return print_answer(session, json_of(work), text_of(work), work.status);
}
