// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/unit.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <chrono>
#include <csignal>
#include <utility>
#include <vector>

#include "mdnsproxyctl/program.h"
#include "mdnsproxyctl/text.h"

namespace {

using Clock = std::chrono::steady_clock;

// Well beyond what systemd itself waits for a unit's commands.
constexpr std::chrono::seconds kLongestCommand(120);
constexpr std::chrono::milliseconds kBetweenLooks(200);

ProgramRun systemctl(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "systemctl");
  return run_program(
      {.paths = {"/usr/bin/systemctl", "/bin/systemctl"},
       .arguments = std::move(arguments),
       .environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C.UTF-8", "SYSTEMD_PAGER=", "SYSTEMD_COLORS=0"},
       .keeps_errors = true,
       .longest = kLongestCommand});
}

struct UnitState {
  std::string active;
  std::string sub;
  std::string invocation;  // another one at each start
  std::string exit_status;
  std::uint32_t pid = 0;
};

std::string value_of(const std::string& properties, const std::string& name) {
  const std::string line = "\n" + name + "=";
  const std::string text = "\n" + properties;
  const std::size_t at = text.find(line);
  return at == std::string::npos ? "" : text.substr(at + line.size(), text.find('\n', at + 1) - at - line.size());
}

UnitState unit_state() {
  const std::string output =
      systemctl({"show", "--property=ActiveState,SubState,InvocationID,ExecMainStatus,MainPID", "--", kUnit}).output;
  UnitState state = {value_of(output, "ActiveState"), value_of(output, "SubState"), value_of(output, "InvocationID"),
                     value_of(output, "ExecMainStatus"), 0};
  const std::string pid = value_of(output, "MainPID");
  std::from_chars(pid.data(), pid.data() + pid.size(), state.pid);
  return state;
}

// The first line of the status file that the process has in its own /tmp; "" when there is none.
std::string status_of(std::uint32_t pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/root/tmp/mdnsproxy.out";
  const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC);
  if (file == -1) {
    return "";
  }
  struct stat status = {};
  std::array<char, 16> text = {};
  const bool is_file = fstat(file, &status) == 0 && S_ISREG(status.st_mode);
  const ssize_t size = is_file ? read(file, text.data(), text.size()) : 0;
  close(file);
  const std::string line(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  return line.find('\n') != std::string::npos ? line.substr(0, line.find('\n')) : "";
}

bool has_ended(const UnitState& state) {
  return state.active == "failed" || state.active == "inactive" || state.sub == "auto-restart";
}

// Waits for a moment. True: one of the signals has come.
bool is_stopped(bool may_be_stopped) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int each : {SIGHUP, SIGINT, SIGTERM}) {
    if (may_be_stopped) {
      sigaddset(&signals, each);
    }
  }
  const timespec moment = {0, std::chrono::nanoseconds(kBetweenLooks).count()};
  return sigtimedwait(&signals, nullptr, &moment) > 0;
}

// Looks again and again at what the start that follows `before` comes to.
Reloaded wait_for_start(const UnitState& before, unsigned seconds, bool may_be_stopped) {
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  std::string status;
  do {
    const UnitState now = unit_state();
    const bool started = !now.invocation.empty() && now.invocation != before.invocation;
    status = started && now.pid != 0 ? status_of(now.pid) : "";
    if (status == "0") {
      return {true, "", now.pid};
    }
    if (started && has_ended(now)) {
      return {false,
              "the daemon ended with exit status " + shown(now.exit_status) + "; journalctl -u mdnsproxy says why", 0};
    }
    if (is_stopped(may_be_stopped)) {
      return {false, "a signal has stopped it", 0};
    }
  } while (Clock::now() < end);
  return {false,
          "the daemon did not say within " + std::to_string(seconds) + " seconds that it runs" +
              (status.empty() ? "" : "; its status is " + shown(status)),
          0};
}

}  // namespace

bool systemd_runs() {
  struct stat status = {};
  return lstat("/run/systemd/system", &status) == 0 && S_ISDIR(status.st_mode);
}

Reloaded reload_unit(unsigned seconds, bool may_be_stopped) {
  const UnitState before = unit_state();
  const ProgramRun reload = systemctl({"reload-or-restart", "--", kUnit});
  if (reload.status != 0) {
    const std::string output = reload.output.substr(0, reload.output.find('\n'));
    const std::string words = reload.status == 127 ? "there is no systemctl" : shown(output);
    return {false, "systemctl reload-or-restart failed: " + words, 0};
  }
  return wait_for_start(before, seconds, may_be_stopped);
}
