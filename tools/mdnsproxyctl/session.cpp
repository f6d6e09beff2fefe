// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/session.h"

#include <cstdio>

#include "mdnsproxyctl/json.h"

namespace {

constexpr int kSchema = 1;

Json text_or_null(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

Json daemon_json(const Session& session) {
  Json daemon = {{"running", session.is_running()}, {"pid", nullptr}, {"since", nullptr}, {"version", nullptr}};
  if (session.has_state()) {
    daemon["version"] = text_or_null(session.state.view.version);
  }
  if (session.is_running()) {
    daemon["pid"] = session.state.view.pid;
    daemon["since"] = utc_time(session.state.view.started, session.clocks);
  }
  return daemon;
}

}  // namespace

Session begin_session(const Options& options) { return {options, read_state_file(options.state_file), clocks_now()}; }

Json new_answer(const Session& session) {
  Json answer = {{"schema", kSchema}, {"daemon", daemon_json(session)}};
  if (!session.has_state()) {
    answer["problem"] = session.options.state_file + ": " + session.state.message;
  }
  return answer;
}

Json service_json(const Session& session, const InstanceView& instance) {
  const RuleView& rule = session.state.view.rules[instance.rule];
  return {{"service", instance.name},
          {"type", rule.type},
          {"from", rule.from},
          {"to", rule.to},
          {"rule_line", rule.line != 0 ? Json(rule.line) : Json(nullptr)},
          {"state", state_word(instance.state)},
          {"reason", text_or_null(reason_word(instance.reason))},
          {"name_there", text_or_null(instance.name_there)},
          {"host", text_or_null(instance.host)},
          {"addresses", instance.addresses},
          {"port", instance.port != 0 ? Json(instance.port) : Json(nullptr)},
          {"since", utc_time(instance.since, session.clocks)}};
}

std::string absence(const Session& session) {
  const std::string file = shown(session.options.state_file);
  switch (session.state.outcome) {
    case StateOutcome::missing:
      return "There is no state file " + file +
             ".\ncure: start the daemon (systemctl start mdnsproxy); started by hand it needs the directory to be "
             "there\n";
    case StateOutcome::unusable:
      return "The state file " + file + " cannot be used: " + session.state.message +
             ".\ncure: restart the daemon, which makes it anew, or name another file with --state-file\n";
    case StateOutcome::other_layout:
      return "The state file " + file + " cannot be read: " + session.state.message +
             ".\ncure: use the mdnsproxyctl that came with the daemon, and restart the daemon after an upgrade\n";
    case StateOutcome::ok:
      break;
  }
  if (session.is_running()) {
    return "";
  }
  const StateView& view = session.state.view;
  const std::string last = utc_time(view.beat, session.clocks);
  const std::string how = view.phase == StatePhase::ended
                              ? "it ended with status " + std::to_string(view.exit_status) + " at " + last
                              : "it was killed or crashed after " + last;
  return "The daemon is not running: " + how + (view.torn ? ", in the middle of writing" : "") +
         ".\ncure: look for the reason (journalctl -u mdnsproxy) and start it (systemctl start mdnsproxy)\n";
}

int base_status(const Session& session) {
  return !session.has_state() ? kNoState : session.is_running() ? kWell : kNotRunning;
}

std::string answer_output(const Session& session, const Json& answer, const std::string& text) {
  return session.options.json ? answer.dump(2, ' ', true, Json::error_handler_t::replace) + "\n" : text;
}

int print_answer(const Session& session, const Json& answer, const std::string& text, int status) {
  const std::string output = answer_output(session, answer, text);
  const bool written = std::fputs(output.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
  return written ? status : kUnwell;
}

const char* state_word(StateOfInstance state) {
  switch (state) {
    case StateOfInstance::forwarded:
      return "forwarded";
    case StateOfInstance::waiting:
      return "waiting";
    case StateOfInstance::refused:
      return "refused";
    case StateOfInstance::none:
      break;
  }
  return "gone";
}

const char* reason_word(StateReason reason) {
  constexpr const char* kWords[] = {"",      "resolving", "no_address", "link_local_only", "through_gateway",
                                    "limit", "probing",   "not_named",  "conflict"};
  return kWords[static_cast<std::size_t>(reason)];
}

const char* reason_sentence(StateReason reason) {
  constexpr const char* kSentences[] = {"",
                                        "its host and port are not known yet",
                                        "its host has no address",
                                        "its host has only link-local addresses",
                                        "it came through another gateway",
                                        "there are too many services",
                                        "its name is being claimed on the other link",
                                        "no rule names its type",
                                        "somebody else has its name on the other link"};
  return kSentences[static_cast<std::size_t>(reason)];
}

const LinkView* link_figures(const Session& session, int index) {
  const auto found = std::ranges::find(session.state.view.links, index, &LinkView::index);
  return found != session.state.view.links.end() ? &*found : nullptr;
}

Json link_figures_json(const Session& session, int index) {
  const LinkView* const link = link_figures(session, index);
  if (link == nullptr) {
    return {{"received", nullptr}, {"sent", nullptr},      {"dropped", nullptr},
            {"ignored", nullptr},  {"conflicts", nullptr}, {"gateways", nullptr}};
  }
  return {{"received", link->received}, {"sent", link->sent},           {"dropped", link->lost},
          {"ignored", link->ignored},   {"conflicts", link->conflicts}, {"gateways", link->siblings}};
}
