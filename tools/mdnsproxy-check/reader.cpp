// SPDX-License-Identifier: MIT
#include "mdnsproxy-check/reader.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr const char* kDaemonUser = "mdnsproxy";
constexpr Reader kNobody = {65534, 65534};  // by that number on every Linux: the kernel's overflow user

// What the child process ends with.
enum Trial { kReadable = 0, kUnreadable = 1, kUntried = 2 };

// Never returns. The file itself is reached by its descriptor, of which the kernel asks for no way to it.
[[noreturn]] void try_as(const Reader& reader, const std::string& path) {
  if (!become(reader)) {
    _exit(kUntried);
  }
  const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  _exit(file != -1 ? kReadable : errno == EACCES || errno == EPERM ? kUnreadable : kUntried);
}

}  // namespace

Reader daemon_reader() {
  const passwd* const user = getpwnam(kDaemonUser);
  return user != nullptr ? Reader{user->pw_uid, user->pw_gid} : kNobody;
}

bool become(const Reader& reader) {
  return setgroups(0, nullptr) == 0 && setresgid(reader.group, reader.group, reader.group) == 0 &&
         setresuid(reader.user, reader.user, reader.user) == 0;
}

bool can_read(const std::string& path, const Reader& reader) {
  const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (file == -1) {
    return true;
  }
  const pid_t child = fork();
  if (child == 0) {
    try_as(reader, path.starts_with("/etc/") ? path : "/proc/self/fd/" + std::to_string(file));
  }
  int status = 0;
  while (child != -1 && waitpid(child, &status, 0) == -1 && errno == EINTR) {
  }
  close(file);
  return child == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != kUnreadable;
}
