// SPDX-License-Identifier: MIT
// The whole file is read three times: the sequence numbers are taken from the first and the third reading, the records
// from the second. A record whose two numbers are the same even one was not written in between. The others are read
// again by themselves. The file is read and not mapped, since a mapping of a file that somebody cuts short ends the
// process.
#include "mdnsproxyctl/state_reader.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <span>

namespace {

constexpr int kTries = 100;
constexpr std::uint32_t kLargestRecord = 4096;
constexpr std::uint32_t kMostRecords = 65536;
constexpr std::uint64_t kLargestFile = 16 * 1024 * 1024;

using Bytes = std::vector<unsigned char>;

StateReading failed(StateOutcome outcome, const std::string& message) {
  StateReading reading;
  reading.outcome = outcome;
  reading.message = message;
  return reading;
}

// False: the file has fewer bytes there.
bool read_at(int file, std::uint64_t offset, std::span<unsigned char> into) {
  std::size_t done = 0;
  while (done < into.size()) {
    const ssize_t got = pread(file, into.data() + done, into.size() - done, static_cast<off_t>(offset + done));
    if (got == 0 || (got < 0 && errno != EINTR)) {
      return false;
    }
    done += got > 0 ? static_cast<std::size_t>(got) : 0;
  }
  return true;
}

// Where things lie in a file of this head.
struct Places {
  StateHead head;
  std::uint64_t global;
  std::uint64_t rules;
  std::uint64_t instances;
  std::uint64_t events;
  std::uint64_t links;
  std::uint64_t end;
};

bool is_sound(std::uint32_t size, std::uint32_t count) {
  return size >= 8 && size <= kLargestRecord && size % 8 == 0 && count >= 1 && count <= kMostRecords;
}

Places places_of(const StateHead& head) {
  Places places = {head, head.head_size, 0, 0, 0, 0, 0};
  places.rules = places.global + head.global_size;
  places.instances = places.rules + std::uint64_t{head.rule_size} * head.rules;
  places.events = places.instances + std::uint64_t{head.instance_size} * head.instances;
  places.links = places.events + std::uint64_t{head.event_size} * head.events;
  places.end = places.links + std::uint64_t{head.link_size} * head.links;
  return places;
}

// --- Records that do not change while they are copied ----------------------------------------------------------------

std::uint32_t number_at(const Bytes& image, std::uint64_t offset) {
  std::uint32_t number = 0;
  std::memcpy(&number, image.data() + offset, sizeof number);
  return number;
}

enum class Copy { whole, changing, torn };

// Three readings of a file, and the way to read one record again.
struct Images {
  int file;
  bool writer_lives;
  Bytes before;
  Bytes records;
  Bytes after;
};

// Makes images.records hold a whole record at the offset.
Copy settle(Images& images, std::uint64_t offset, std::uint32_t size) {
  std::uint32_t before = number_at(images.before, offset);
  std::uint32_t after = number_at(images.after, offset);
  unsigned char number[sizeof(std::uint32_t)];
  for (int tries = 0; before != after || before % 2 != 0; ++tries) {
    if (tries == kTries || !images.writer_lives) {
      return images.writer_lives ? Copy::changing : Copy::torn;
    }
    if (!read_at(images.file, offset, number)) {
      return Copy::torn;
    }
    std::memcpy(&before, number, sizeof before);
    if (!read_at(images.file, offset, std::span(images.records).subspan(static_cast<std::size_t>(offset), size)) ||
        !read_at(images.file, offset, number)) {
      return Copy::torn;
    }
    std::memcpy(&after, number, sizeof after);
  }
  return Copy::whole;
}

// Copies as much of a record as both sides know. False: there is nothing to copy, and the view says why.
template <typename Record>
bool copy_record(Images& images, std::uint64_t offset, std::uint32_t size, StateView& view, Record& record) {
  const Copy copy = settle(images, offset, size);
  view.torn |= copy == Copy::torn;
  view.changing += copy == Copy::changing ? 1 : 0;
  if (copy != Copy::whole) {
    return false;
  }
  record = Record{};
  std::memcpy(static_cast<void*>(&record), images.records.data() + offset, std::min<std::size_t>(size, sizeof record));
  return true;
}

template <std::size_t Size>
std::string text_of(const char (&field)[Size]) {
  return {field, strnlen(field, Size)};
}

// --- What the records say --------------------------------------------------------------------------------------------

// Each returns false when the record says what no daemon writes.

bool take_global(const StateGlobal& global, const StateHead& head, StateView& view) {
  if (global.pid == 0 || global.started == 0 || global.rules > head.rules || global.phase > StatePhase::ended) {
    return false;
  }
  view.pid = global.pid;
  view.started = global.started;
  view.started_realtime = global.started_realtime;
  view.beat = global.beat;
  view.phase = global.phase;
  view.waiting = global.waiting != 0;
  view.rules_left_out = global.rules_left_out;
  view.limit = global.limit;
  view.exit_status = global.exit_status;
  std::copy(std::begin(global.counters), std::end(global.counters), view.counters.begin());
  view.version = text_of(global.version);
  view.rules_file = text_of(global.rules_file);
  view.events_written = global.events;
  return true;
}

bool take_rule(const StateRule& rule, StateView& view) {
  view.rules.push_back({rule.line, text_of(rule.from), text_of(rule.to), rule.from_index, rule.to_index,
                        text_of(rule.type), rule.since});
  return true;
}

bool is_known(StateOfInstance state) { return state <= StateOfInstance::refused; }

std::string address_text(int family, const std::uint8_t* address) {
  char text[INET6_ADDRSTRLEN] = {};
  return inet_ntop(family, address, text, sizeof text);
}

std::vector<std::string> addresses_of(const StateInstance& instance) {
  const auto is_set = [](std::uint8_t byte) { return byte != 0; };
  std::vector<std::string> addresses;
  if (std::ranges::any_of(instance.address4, is_set)) {
    addresses.push_back(address_text(AF_INET, instance.address4));
  }
  if (std::ranges::any_of(instance.address6, is_set)) {
    addresses.push_back(address_text(AF_INET6, instance.address6));
  }
  return addresses;
}

bool take_instance(const StateInstance& instance, StateView& view) {
  if (instance.state == StateOfInstance::none) {
    return true;
  }
  if (!is_known(instance.state) || instance.reason > StateReason::conflict || instance.rule >= view.rules.size()) {
    return false;
  }
  view.instances.push_back({instance.rule, instance.state, instance.reason, text_of(instance.name),
                            text_of(instance.name_there), text_of(instance.host), addresses_of(instance), instance.port,
                            instance.found, instance.since});
  return true;
}

bool take_event(const StateEvent& event, StateView& view) {
  if (event.sequence == 0) {
    return true;
  }
  if (!is_known(event.before) || !is_known(event.after) || event.reason > StateReason::conflict ||
      event.rule >= view.rules.size()) {
    return false;
  }
  view.events.push_back(
      {event.number, event.time, event.rule, event.before, event.after, event.reason, text_of(event.name)});
  return true;
}

bool take_link(const StateLink& link, StateView& view) {
  if (link.index == 0) {
    return true;
  }
  const StateLinkFigures& figures = link.figures;
  LinkView taken = {static_cast<int>(link.index),
                    figures.received,
                    figures.ignored,
                    figures.lost,
                    figures.sent,
                    figures.conflicts,
                    {}};
  for (const StateHost& host : figures.siblings) {
    if (host.family == 4 || host.family == 6) {
      taken.siblings.push_back(address_text(host.family == 4 ? AF_INET : AF_INET6, host.address));
    }
  }
  view.links.push_back(taken);
  return true;
}

// --- The whole -------------------------------------------------------------------------------------------------------

struct Table {
  std::uint64_t place;
  std::uint32_t size;  // of a record
  std::uint32_t count;
};

// Gives each record that can be copied to `take`. False: that said that it is one which no daemon writes.
template <typename Record>
bool take_records(Images& images, const Table& table, StateView& view, bool (*take)(const Record&, StateView&)) {
  for (std::uint32_t i = 0; i < table.count; ++i) {
    Record record = {};
    const std::uint64_t place = table.place + std::uint64_t{table.size} * i;
    if (copy_record(images, place, table.size, view, record) && !take(record, view)) {
      return false;
    }
  }
  return true;
}

bool take_tables(Images& images, const Places& places, std::uint32_t rules, StateView& view) {
  const StateHead& head = places.head;
  const bool sound =
      take_records(images, {places.rules, head.rule_size, rules}, view, take_rule) &&
      view.rules.size() == rules &&  // the other records speak of rules by their place
      take_records(images, {places.instances, head.instance_size, head.instances}, view, take_instance) &&
      take_records(images, {places.events, head.event_size, head.events}, view, take_event) &&
      take_records(images, {places.links, head.link_size, head.links}, view, take_link);
  std::ranges::stable_sort(view.instances, {}, &InstanceView::found);
  std::ranges::sort(view.events, {}, &EventView::number);
  return sound;
}

// Whether somebody holds the lock that the daemon takes for its life; where locks cannot be asked, whether its process
// is there.
bool has_writer(int file, std::uint32_t pid) {
  struct flock probe = {};
  probe.l_type = F_RDLCK;
  probe.l_whence = SEEK_SET;
  if (fcntl(file, F_OFD_GETLK, &probe) == 0) {
    return probe.l_type == F_WRLCK;
  }
  return pid != 0 && (kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM);
}

StateReading read_records(int file, const Places& places) {
  const auto size = static_cast<std::size_t>(places.end);  // kLargestFile at most
  Images images = {file, false, Bytes(size), Bytes(size), Bytes(size)};
  for (Bytes* image : {&images.before, &images.records, &images.after}) {
    if (!read_at(file, 0, *image)) {
      return failed(StateOutcome::unusable, "it is cut short");
    }
  }
  StateReading reading;
  images.writer_lives = has_writer(file, number_at(images.records, places.global + offsetof(StateGlobal, pid)));
  reading.view.writer_lives = images.writer_lives;
  StateGlobal global = {};
  if (!copy_record(images, places.global, places.head.global_size, reading.view, global)) {
    return failed(StateOutcome::unusable, images.writer_lives
                                              ? "it is being changed all the time"
                                              : "the daemon was killed while it wrote its first record");
  }
  if (!take_global(global, places.head, reading.view) || !take_tables(images, places, global.rules, reading.view)) {
    return failed(StateOutcome::unusable, "it is damaged: it says what no daemon writes");
  }
  reading.outcome = StateOutcome::ok;
  return reading;
}

bool is_trusted_owner(const struct stat& status, const std::string& path) {
  const std::size_t slash = path.rfind('/');
  struct stat directory = {};
  const std::string parent = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  if (status.st_uid == 0 || (stat(parent.c_str(), &directory) == 0 && directory.st_uid == status.st_uid)) {
    return true;
  }
  const struct passwd* const user = getpwnam("mdnsproxy");
  return user != nullptr && user->pw_uid == status.st_uid;
}

}  // namespace

StateReading read_state(int file) {
  Bytes bytes(sizeof(StateHead));
  StateHead head = {};
  if (!read_at(file, 0, bytes)) {
    return failed(StateOutcome::unusable, "it is too short to be a state file");
  }
  std::memcpy(&head, bytes.data(), sizeof head);
  if (std::memcmp(head.magic, kStateMagic, sizeof head.magic) != 0) {
    return failed(StateOutcome::unusable, "it is no state file of mdnsproxy");
  }
  if (head.major != kStateMajor) {
    return failed(StateOutcome::other_layout, "it has layout " + std::to_string(head.major) + "." +
                                                  std::to_string(head.minor) + " and this program reads layout " +
                                                  std::to_string(kStateMajor));
  }
  const bool sound = is_sound(head.head_size, 1) && is_sound(head.global_size, 1) &&
                     is_sound(head.rule_size, head.rules) && is_sound(head.instance_size, head.instances) &&
                     is_sound(head.event_size, head.events) &&
                     (head.minor == 0 ? head.links == 0 : is_sound(head.link_size, head.links));
  const Places places = places_of(head);
  if (!sound || head.head_size < sizeof head || head.global_size < offsetof(StateGlobal, counters) ||
      places.end > kLargestFile) {
    return failed(StateOutcome::unusable, "its head is damaged");
  }
  struct stat status = {};
  if (fstat(file, &status) != 0 || static_cast<std::uint64_t>(status.st_size) < places.end) {
    return failed(StateOutcome::unusable, "it is cut short");
  }
  return read_records(file, places);
}

StateReading read_state_file(const std::string& path) {
  // O_NONBLOCK: what stands there may be a pipe, which would let us wait for a writer.
  const int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (file == -1) {
    const int why = errno;
    return failed(why == ENOENT || why == ENOTDIR ? StateOutcome::missing : StateOutcome::unusable,
                  why == ELOOP ? "it is a symbolic link" : std::strerror(why));
  }
  struct stat status = {};
  StateReading reading;
  if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
    reading = failed(StateOutcome::unusable, "it is no regular file");
  } else if (!is_trusted_owner(status, path)) {
    reading = failed(StateOutcome::unusable,
                     "it belongs to user " + std::to_string(status.st_uid) + ", who is not the daemon's");
  } else {
    reading = read_state(file);
  }
  close(file);
  return reading;
}
