// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kNoProgram = 127;  // as a shell says it

std::vector<char*> as_list(const std::vector<const char*>& texts) {
  std::vector<char*> list;
  list.reserve(texts.size() + 1);
  for (const char* each : texts) {
    list.push_back(const_cast<char*>(each));
  }
  list.push_back(nullptr);
  return list;
}

// -1: it could not be started.
pid_t start(const Program& program, const char* path, int output) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  if (program.keeps_errors) {
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  pid_t process = -1;
  const int error = posix_spawn(&process, path, &actions, &attributes, as_list(program.arguments).data(),
                                as_list(program.environment).data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? process : -1;
}

// Reads until the other end is closed. False: that took too long, or failed.
bool read_until_end(int input, const Program& program, ProgramRun& run) {
  const Clock::time_point end = Clock::now() + program.longest;
  std::array<char, 65536> part;
  run.is_whole = true;
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    pollfd ready = {input, POLLIN, 0};
    if (left <= 0 || poll(&ready, 1, static_cast<int>(left)) == 0) {
      return false;
    }
    const ssize_t got = read(input, part.data(), part.size());
    if (got == 0 || (got < 0 && errno != EINTR)) {
      return got == 0;
    }
    const std::size_t room = program.most_output - run.output.size();
    const std::size_t size = got > 0 ? static_cast<std::size_t>(got) : 0;
    run.output.append(part.data(), std::min(size, room));
    run.is_whole = run.is_whole && size <= room;
  }
}

}  // namespace

ProgramRun run_program(const Program& program) {
  ProgramRun run;
  const auto path = std::ranges::find_if(program.paths, [](const char* each) { return access(each, X_OK) == 0; });
  if (path == program.paths.end()) {
    run.status = kNoProgram;
    return run;
  }
  run.path = *path;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return run;
  }
  const pid_t process = start(program, run.path, ends[1]);
  close(ends[1]);
  if (process != -1 && !read_until_end(ends[0], program, run)) {
    run.is_whole = false;
    kill(process, SIGKILL);
  }
  close(ends[0]);
  int status = 0;
  while (process != -1 && waitpid(process, &status, 0) == -1 && errno == EINTR) {
  }
  run.status = process != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}
