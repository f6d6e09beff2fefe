// SPDX-License-Identifier: MIT
// The file itself, and the global record.
//
// Lifecycle of the file:
//   1. state_open makes it under a name of its own beside its place, with all its blocks allocated, so that no later
//      write can find the disk full (which would be a signal and not an error);
//   2. it takes a lock on the open file description, fills in what never changes, and gives the file its name: a
//      reader finds either no file or a whole one;
//   3. the descriptor stays open, for the lock, and the mapping for the writes;
//   4. the kernel lets go of the lock when the process ends, however that comes about.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "state/record.h"
#include "state/state.h"

StateImage* gStateImage = nullptr;

namespace {

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
constexpr std::uint64_t kBeatInterval = kNsPerSecond;
constexpr mode_t kReadableForAll = 0644;
// Longer than any path of the settings file.
constexpr std::size_t kPathSize = 512;

std::uint64_t now_of(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * kNsPerSecond + static_cast<std::uint64_t>(now.tv_nsec);
}

// Creates the file, in place of one that a killed process has left. Fails if something else has the name that cannot be
// unlinked, such as a directory.
int create_exclusively(const char* path) {
  constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const int file = open(path, kFlags, kReadableForAll);
  if (file != -1 || errno != EEXIST || unlink(path) != 0) {
    return file;
  }
  return open(path, kFlags, kReadableForAll);
}

// The whole file is locked for writing. A lock of the open file description is not lost when another descriptor of the
// file is closed.
bool lock(int file) {
  struct flock whole = {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  return fcntl(file, F_OFD_SETLK, &whole) == 0;
}

StateImage* map(int file) {
  void* const image = mmap(nullptr, sizeof(StateImage), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  return image != MAP_FAILED ? static_cast<StateImage*>(image) : nullptr;
}

void fill_head(StateHead& head) {
  std::memcpy(head.magic, kStateMagic, sizeof head.magic);
  head.major = kStateMajor;
  head.minor = kStateMinor;
  head.head_size = sizeof(StateHead);
  head.global_size = sizeof(StateGlobal);
  head.rule_size = sizeof(StateRule);
  head.rules = kStateRules;
  head.instance_size = sizeof(StateInstance);
  head.instances = kStateInstances;
  head.event_size = sizeof(StateEvent);
  head.events = kStateEvents;
  head.link_size = sizeof(StateLink);
  head.links = kStateLinks;
}

void fill_global(StateGlobal& global, const StateIdentity& identity) {
  global.pid = static_cast<std::uint32_t>(getpid());
  global.started = state_now();
  global.started_realtime = now_of(CLOCK_REALTIME);
  global.beat = global.started;
  global.phase = StatePhase::starting;
  global.limit = identity.limit;
  set_field(global.version, identity.version);
  set_field(global.rules_file, identity.rules_file);
}

// Prepares the new file: mode, size, lock, mapping and first contents. Null when one of these fails.
StateImage* prepare_image(int file, const StateIdentity& identity) {
  const bool ready =
      fchmod(file, kReadableForAll) == 0 && posix_fallocate(file, 0, sizeof(StateImage)) == 0 && lock(file);
  StateImage* const image = ready ? map(file) : nullptr;
  if (image != nullptr) {
    fill_head(image->head);
    fill_global(image->global, identity);
  }
  return image;
}

}  // namespace

std::uint64_t state_now() { return now_of(CLOCK_BOOTTIME); }

void state_open(const char* path, const StateIdentity& identity) {
  char fresh[kPathSize];
  const int length = std::snprintf(fresh, sizeof fresh, "%s.new", path);
  if (path[0] != '/' || length < 0 || static_cast<std::size_t>(length) >= sizeof fresh) {
    return;
  }
  const int file = create_exclusively(fresh);
  if (file == -1) {
    return;
  }
  StateImage* const image = prepare_image(file, identity);
  if (image == nullptr || rename(fresh, path) != 0) {
    unlink(fresh);
    if (image != nullptr) {
      munmap(image, sizeof(StateImage));
    }
    close(file);
    return;
  }
  state_forget_rules();
  state_forget_instances();
  gStateImage = image;
}

void state_runs() {
  if (gStateImage != nullptr) {
    const RecordWriting writing(gStateImage->global);
    gStateImage->global.phase = StatePhase::running;
    gStateImage->global.beat = state_now();
  }
}

void state_ends(int status) {
  if (gStateImage != nullptr) {
    const RecordWriting writing(gStateImage->global);
    gStateImage->global.phase = StatePhase::ended;
    gStateImage->global.exit_status = static_cast<std::uint32_t>(status);
    gStateImage->global.beat = state_now();
  }
}

void state_waits() {
  if (gStateImage != nullptr) {
    const RecordWriting writing(gStateImage->global);
    gStateImage->global.waiting = 1;
  }
}

bool state_wakes() {
  if (gStateImage == nullptr) {
    return false;
  }
  StateGlobal& global = gStateImage->global;
  const std::uint64_t now = state_now();
  const RecordWriting writing(global);
  global.waiting = 0;
  global.counters[static_cast<std::size_t>(StateCounter::wakes)] += 1;
  const bool beats = now - global.beat >= kBeatInterval;
  global.beat = beats ? now : global.beat;
  return beats;
}

void state_count(StateCounter counter) {
  StateGlobal& global = gStateImage->global;
  const RecordWriting writing(global);
  global.counters[static_cast<std::size_t>(counter)] += 1;
}
