// SPDX-License-Identifier: MIT
#include "unit/child_process.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

struct Pipe {
  int ends[2];

  Pipe() {
    if (pipe(ends) != 0) {
      std::abort();
    }
  }
};

[[noreturn]] void be_child(const Pipe& out, const Pipe& err, const std::function<void()>& act) {
  const rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  dup2(out.ends[1], STDOUT_FILENO);
  dup2(err.ends[1], STDERR_FILENO);
  for (const Pipe* each : {&out, &err}) {
    close(each->ends[0]);
    close(each->ends[1]);
  }
  act();
  std::fflush(nullptr);
  _exit(testing::Test::HasFailure() ? kChildFailed : 0);
}

// Takes over what has arrived; closes the descriptor and makes it -1 at its end.
void take(pollfd& from, std::string& text) {
  char piece[4096];
  const ssize_t got = from.revents != 0 ? read(from.fd, piece, sizeof(piece)) : 1;
  if (got <= 0) {
    close(from.fd);
    from.fd = -1;
  } else if (from.revents != 0) {
    text.append(piece, static_cast<std::size_t>(got));
  }
}

void read_both(int out, int err, ChildProcess& child) {
  pollfd ends[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
  while (ends[0].fd != -1 || ends[1].fd != -1) {
    poll(ends, 2, -1);
    if (ends[0].fd != -1) {
      take(ends[0], child.out);
    }
    if (ends[1].fd != -1) {
      take(ends[1], child.err);
    }
  }
}

}  // namespace

ChildProcess run_in_child(const std::function<void()>& act) {
  Pipe out;
  Pipe err;
  std::fflush(nullptr);
  const pid_t process = fork();
  if (process == 0) {
    be_child(out, err, act);
  }
  close(out.ends[1]);
  close(err.ends[1]);
  ChildProcess child = {-1, 0, "", ""};
  read_both(out.ends[0], err.ends[0], child);
  int status = 0;
  waitpid(process, &status, 0);
  child.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  child.ending_signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  return child;
}

void in_helper_process(const std::function<void()>& act) {
  std::fflush(nullptr);
  if (fork() == 0) {
    act();
    _exit(0);
  }
}

void wait_until_asleep(int process) {
  const std::string path = "/proc/" + std::to_string(process) + "/stat";
  char state = 'R';
  while (state == 'R' || state == 'D') {
    usleep(1000);
    std::ifstream file(path);
    std::string stat;
    std::getline(file, stat);
    const std::size_t name_end = stat.rfind(") ");
    state = name_end != std::string::npos ? stat[name_end + 2] : '\0';  // gone
  }
}

std::string describe(const ChildProcess& child) {
  return "exit status " + std::to_string(child.exit_status) + ", signal " + std::to_string(child.ending_signal) +
         "\nstandard output: " + child.out + "\nstandard error: " + child.err;
}
