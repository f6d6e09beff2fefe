// SPDX-License-Identifier: MIT
// Lifecycle of the newest reading:
// 1. It is read at the first question, and again whenever the file's stamp (device, inode, size, times) has changed.
// 2. Transactions that begin hold it; a change of the file replaces it here, and the last transaction to end frees the
//    old one.
// 3. A content that has been reported once is recognised by its hash, so that a touched or replaced file of the same
//    content is not reported again.
#include "platform/settings_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/zmk.h"

const char* gVcmSettingsFile = "/etc/mdnsproxy.conf";

namespace {

// File times advance with the kernel's tick, at most 10 ms. Two changes within one tick can leave the same stamp
// behind, so a stamp is only trusted when its last change was longer ago than this as it was taken.
constexpr std::int64_t kStampSettlesAfterNs = 20'000'000;

constexpr std::int64_t kNsPerSecond = 1'000'000'000;

// What tells one state of the file from the next.
struct Stamp {
  dev_t device;
  ino_t inode;
  off_t size;
  std::int64_t modified_ns;
  std::int64_t changed_ns;

  bool operator==(const Stamp&) const = default;
};

struct Newest {
  bool stamped;  // `stamp` belongs to `reading` and is to be trusted
  Stamp stamp;
  SettingsReading* reading;  // null: nothing is configured
  bool has_content;          // `content_hash` is that of the last content read
  std::uint64_t content_hash;
  char complaint[80];  // why the file could not be read, as reported last; "": it could, or it was not there
};

Newest gNewest;

std::int64_t to_ns(const timespec& time) { return time.tv_sec * kNsPerSecond + time.tv_nsec; }

Stamp stamp_of(const struct stat& file) {
  return Stamp{file.st_dev, file.st_ino, file.st_size, to_ns(file.st_mtim), to_ns(file.st_ctim)};
}

bool is_settled(const Stamp& stamp) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  const std::int64_t age = to_ns(now) - stamp.changed_ns;
  return age > kStampSettlesAfterNs || age < -kStampSettlesAfterNs;
}

// FNV-1a, 64 bits (Fowler, Noll, Vo).
std::uint64_t hash_of(const char* text, std::size_t size) {
  std::uint64_t hash = 14695981039346656037ULL;
  for (std::size_t i = 0; i < size; ++i) {
    hash = (hash ^ static_cast<unsigned char>(text[i])) * 1099511628211ULL;
  }
  return hash;
}

void replace_reading(SettingsReading* reading) {
  settings_release(gNewest.reading);
  gNewest.reading = reading;
}

void complain(const char* why) {
  if (std::strncmp(gNewest.complaint, why, sizeof(gNewest.complaint) - 1) != 0) {
    syslog(LOG_ERR, "%s: cannot be read (%s), nothing is configured", gVcmSettingsFile, why);
  }
  std::snprintf(gNewest.complaint, sizeof(gNewest.complaint), "%s", why);
}

void report_mistake(int line, const char* message, void*) {
  syslog(LOG_ERR, "%s:%d: %s", gVcmSettingsFile, line, message);
}

void pass_over_mistake(int, const char*, void*) {}

// Whether reading the file at once brought all of it. `text` has room for one byte more than the file's size, by which
// a file that has grown since is found out; it is then read again at the next question.
bool read_whole(int file, char* text, std::size_t room, std::size_t* size) {
  *size = 0;
  while (*size < room) {
    const ssize_t got = read(file, text + *size, room - *size);
    if (got == 0) {
      return true;
    }
    if (got == -1 && errno != EINTR) {
      complain(std::strerror(errno));
      return false;
    }
    *size += got > 0 ? static_cast<std::size_t>(got) : 0;
  }
  gNewest.stamped = false;
  return true;
}

void take_content(const char* text, std::size_t size) {
  const std::uint64_t hash = hash_of(text, size);
  const bool is_new = !gNewest.has_content || hash != gNewest.content_hash;
  bool no_memory = false;
  replace_reading(settings_read(text, size, is_new ? report_mistake : pass_over_mistake, nullptr, &no_memory));
  gNewest.stamped = gNewest.stamped && !no_memory;
  gNewest.has_content = true;
  gNewest.content_hash = hash;
  gNewest.complaint[0] = '\0';
}

void read_content(int file, std::size_t expected) {
  char* text = static_cast<char*>(zmk_malloc(expected + 1, __FILE__, __LINE__));
  if (text == nullptr) {
    gNewest.stamped = false;
    return;
  }
  std::size_t size = 0;
  if (read_whole(file, text, expected + 1, &size)) {
    take_content(text, size);
  }
  zmk_free(text, __FILE__, __LINE__);
}

// A file that can never be read well is complained about; its stamp stays, so that it is tried again only after a
// change.
void read_open_file(int file) {
  struct stat status = {};
  if (fstat(file, &status) != 0) {
    complain(std::strerror(errno));
    return;
  }
  gNewest.stamp = stamp_of(status);
  gNewest.stamped = is_settled(gNewest.stamp);
  if (!S_ISREG(status.st_mode)) {
    complain("it is no regular file");
  } else if (status.st_size > kSettingsFileLimit) {
    complain("it is too large");
  } else {
    read_content(file, static_cast<std::size_t>(status.st_size));
  }
}

// O_NONBLOCK: what stands there may be a pipe, which would let us wait for a writer.
void read_again(const Stamp& stamp) {
  replace_reading(nullptr);
  gNewest.stamp = stamp;
  gNewest.stamped = is_settled(stamp);
  const int file = open(gVcmSettingsFile, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (file == -1) {
    complain(std::strerror(errno));
    return;
  }
  read_open_file(file);
  close(file);
}

void file_is_out_of_reach(int why) {
  replace_reading(nullptr);
  gNewest.stamped = false;
  if (why == ENOENT || why == ENOTDIR) {
    gNewest.complaint[0] = '\0';
  } else {
    complain(std::strerror(why));
  }
}

}  // namespace

SettingsReading* settings_current() {
  struct stat status = {};
  if (stat(gVcmSettingsFile, &status) != 0) {
    file_is_out_of_reach(errno);
  } else if (const Stamp stamp = stamp_of(status); !gNewest.stamped || stamp != gNewest.stamp) {
    read_again(stamp);
  }
  return gNewest.reading;
}
