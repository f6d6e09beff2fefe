// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/rules_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace {

constexpr mode_t kPermissions = 07777;

std::string directory_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

int open_directory(const std::string& path) { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }

// False: it is not to be had as a whole, and errno says why.
bool read_text(int file, RulesFile& read_file) {
  struct stat status = {};
  if (fstat(file, &status) != 0) {
    return false;
  }
  if (!S_ISREG(status.st_mode) || status.st_size > kLargestRulesFile) {
    errno = S_ISREG(status.st_mode) ? EFBIG : EINVAL;
    return false;
  }
  read_file = {std::string(static_cast<std::size_t>(status.st_size), '\0'), status.st_mode & kPermissions,
               status.st_uid, status.st_gid};
  std::size_t done = 0;
  while (done < read_file.text.size()) {
    const ssize_t got = read(file, read_file.text.data() + done, read_file.text.size() - done);
    if (got <= 0) {
      errno = got == 0 ? EIO : errno;
      return false;
    }
    done += static_cast<std::size_t>(got);
  }
  return true;
}

// The owner first: a change of the owner takes bits of the mode away.
bool fill(int file, const RulesFile& content) {
  return write_all(file, content.text) && fchown(file, content.user, content.group) == 0 &&
         fchmod(file, content.mode) == 0 && fsync(file) == 0;
}

// So that the new name survives a power cut. Not every file system can do that, and the file is there all the same.
void sync_directory(const std::string& path) {
  const int directory = open_directory(path);
  if (directory != -1) {
    fsync(directory);
    close(directory);
  }
}

}  // namespace

bool write_all(int file, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = write(file, text.data() + done, text.size() - done);
    if (written < 0 && errno != EINTR) {
      return false;
    }
    done += written > 0 ? static_cast<std::size_t>(written) : 0;
  }
  return true;
}

bool replace_file(const std::string& path, const std::function<bool(int file)>& fill) {
  std::string fresh = path + ".XXXXXX";
  const int file = mkostemp(fresh.data(), O_CLOEXEC);
  if (file == -1) {
    return false;
  }
  const bool filled = fill(file);
  const int why_not_filled = errno;
  const bool closed = close(file) == 0;
  errno = filled ? errno : why_not_filled;
  const bool replaced = filled && closed && rename(fresh.c_str(), path.c_str()) == 0;
  if (!replaced) {
    const int why = errno;
    unlink(fresh.c_str());
    errno = why;
  }
  return replaced;
}

std::optional<RulesFile> read_rules_file(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (file == -1) {
    return std::nullopt;
  }
  RulesFile read_file;
  const bool whole = read_text(file, read_file);
  const int why = errno;
  close(file);
  errno = why;
  return whole ? std::optional(read_file) : std::nullopt;
}

bool replace_rules_file(const std::string& path, const RulesFile& file) {
  const bool replaced = replace_file(path, [&](int fresh) { return fill(fresh, file); });
  if (replaced) {
    sync_directory(directory_of(path));
  }
  return replaced;
}

DirectoryLock::DirectoryLock(const std::string& path_of_file)
    : directory_(open_directory(directory_of(path_of_file))),
      held_(directory_ != -1 && flock(directory_, LOCK_EX | LOCK_NB) == 0) {}

DirectoryLock::~DirectoryLock() {
  if (directory_ != -1) {
    close(directory_);
  }
}
