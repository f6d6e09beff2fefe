// SPDX-License-Identifier: MIT
// Files that are read and replaced as a whole, and of them the rules list.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

// Writes all of the text to an open file or pipe. False: it could not, and errno says why.
bool write_all(int file, const std::string& text);

// Puts a file in the path's place: `fill` writes a new one beside it (mode 0600, this user's), which then takes its
// name. Whoever opens the path finds the old file or the new one. False: `fill` said so, or the file could not be made,
// closed or renamed; the old one is there as before, and errno says why.
bool replace_file(const std::string& path, const std::function<bool(int file)>& fill);

struct RulesFile {
  std::string text;
  mode_t mode = 0644;
  uid_t user = 0;
  gid_t group = 0;
};

// Of a list that is meant; the daemon itself knows no limit.
inline constexpr off_t kLargestRulesFile = 16 << 20;

// Reads a regular file of at most that size; no FIFO or device is waited for. Nothing, and errno says why, otherwise
// (EINVAL: it is none, EFBIG: it is too large).
std::optional<RulesFile> read_rules_file(const std::string& path);

// Replaces the file by one with this text, mode and owner, which is on the disk before it takes the name. False: the
// old one is there as before, and errno says why.
bool replace_rules_file(const std::string& path, const RulesFile& file);

// Keeps others who replace files in the same directory by this program away, for as long as it is there.
class DirectoryLock {
 public:
  explicit DirectoryLock(const std::string& path_of_file);
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

  bool held() const { return held_; }

 private:
  int directory_;
  bool held_;
};
