// SPDX-License-Identifier: MIT
// The ring of events is looked at several times a second, and each event told once by its number. The daemon notices
// nothing.

#include <cstdio>
#include <thread>

#include "mdnsproxyctl/commands.h"
#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/schema.h"

namespace {

constexpr auto kPause = std::chrono::milliseconds(200);
constexpr std::uint64_t kNsPerSecond = 1'000'000'000;

Json event_answer(const Session& session, const EventView& event) {
  Json answer = new_answer(session);
  answer["event"] = event_json(session, event);
  return answer;
}

std::string event_text(const Session& session, const EventView& event) {
  const RuleView& rule = session.state.view.rules[event.rule];
  const std::string reason = reason_sentence(event.reason);
  return utc_time(event.time, session.clocks) + "  " + shown(rule.from) + " > " + shown(rule.to) + "  " +
         shown(rule.type) + "  " + in_quotes(event.name) + "  " + state_word(event.after) +
         (reason.empty() ? "" : ": " + reason) + "\n";
}

// A host's link-local address often comes a moment before its other one; that moment is not worth a line.
bool is_passed_by(const std::vector<EventView>& events, std::size_t position) {
  if (events[position].reason != StateReason::link_local_only) {
    return false;
  }
  for (std::size_t later = position + 1; later < events.size(); ++later) {
    if (events[later].rule == events[position].rule && events[later].name == events[position].name) {
      return true;
    }
  }
  return false;
}

bool print_line(const std::string& line) { return std::fputs(line.c_str(), stdout) >= 0; }

// Prints what is new from event number `next` on, and moves that. False: the output is closed.
bool print_events(const Session& session, std::uint64_t& next, std::uint64_t not_before) {
  const std::vector<EventView>& events = session.state.view.events;
  for (std::size_t i = 0; i < events.size(); ++i) {
    if (events[i].number < next || events[i].time < not_before) {
      continue;
    }
    if (next != 0 && events[i].number > next && !session.options.json) {
      print_line("(" + std::to_string(events[i].number - next) + " events were too fast and are lost)\n");
    }
    next = events[i].number + 1;
    if (session.options.json) {
      print_line(event_answer(session, events[i]).dump(-1, ' ', true, Json::error_handler_t::replace) + "\n");
    } else if (!is_passed_by(events, i)) {
      print_line(event_text(session, events[i]));
    }
  }
  return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

}  // namespace

int run_watch(const Session& session, std::optional<std::uint64_t> since) {
  if (!session.is_running()) {
    return print_answer(session, new_answer(session), absence(session), base_status(session));
  }
  std::uint64_t next = since ? 0 : session.state.view.events_written;
  const std::uint64_t back = since.value_or(0) * kNsPerSecond;
  const std::uint64_t not_before = session.clocks.boottime > back ? session.clocks.boottime - back : 0;
  std::uint64_t started = session.state.view.started;
  Session now = session;
  while (print_events(now, next, since ? not_before : 0)) {
    std::this_thread::sleep_for(kPause);
    now = begin_session(session.options);
    if (!now.is_running()) {
      return print_answer(now, new_answer(now), absence(now), base_status(now));
    }
    if (now.state.view.started != started) {
      started = now.state.view.started;
      next = 0;
    }
  }
  return kUnwell;
}
