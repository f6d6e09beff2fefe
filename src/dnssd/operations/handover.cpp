// SPDX-License-Identifier: MIT
#include "dnssd/operations/handover.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "dnssd/state/engine.h"

namespace dnssd {
namespace {

constexpr const char* kVariable = "MDNSPROXY_HANDOVER";
constexpr const char* kWantedSuffix = ".wanted";
constexpr const char* kNewSuffix = ".new";

// The greatest age of the file: the next process is started within a moment; later, records are better announced again.
constexpr mdns::Time kFreshFor = 60 * mdns::kSecond;

// Very many services take a few megabytes.
constexpr off_t kSizeMax = 64 << 20;

std::string path_of_file() {
  const char* const path = secure_getenv(kVariable);
  return path == nullptr ? "" : path;
}

// Reads the file and removes it; empty unless it is a regular file of this user that no one else can write.
std::string take_file(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) {
    return {};
  }
  unlink(path.c_str());
  std::string bytes;
  struct stat status {};
  const bool is_ours = fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
                       (status.st_mode & (S_IWGRP | S_IWOTH)) == 0 && status.st_size <= kSizeMax;
  if (is_ours) {
    bytes.resize(static_cast<std::size_t>(status.st_size));
    const ssize_t size = read(fd, bytes.data(), bytes.size());
    bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
  }
  close(fd);
  return bytes;
}

bool write_file(const std::string& path, const std::string& bytes) {
  const std::string made = path + kNewSuffix;
  unlink(made.c_str());
  const int fd = open(made.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
  if (fd < 0) {
    return false;
  }
  const bool is_whole = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  return close(fd) == 0 && is_whole && rename(made.c_str(), path.c_str()) == 0;
}

// A handover with this machine, its present start and time, but without records.
Handover handover_of_now() {
  char boot[64];
  const int fd = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
  const ssize_t size = fd < 0 ? 0 : read(fd, boot, sizeof boot);
  if (fd >= 0) {
    close(fd);
  }
  struct stat network {};
  stat("/proc/self/ns/net", &network);
  return {std::string(boot, size < 0 ? 0 : static_cast<std::size_t>(size)), network.st_ino, monotonic_now(), {}};
}

HandedInterface handed(const Interface& interface) {
  HandedInterface given{interface.index, interface.name, mdns::link_published(*interface.link), {}};
  for (const auto& [name, operation] : interface.hosts) {
    given.hosts.emplace_back(name, std::get<Host>(operation->part).number);
  }
  return given;
}

}  // namespace

void handover_give() {
  const std::string path = path_of_file();
  if (path.empty() || unlink((path + kWantedSuffix).c_str()) != 0) {
    return;
  }
  Handover handover = handover_of_now();
  for (const auto& [index, interface] : gEngine->interfaces) {
    handover.interfaces.push_back(handed(*interface));
  }
  if (write_file(path, handover_to_bytes(handover))) {
    for (const auto& [index, interface] : gEngine->interfaces) {
      mdns::link_withdraw_all(interface_link(*interface), handover.written_at, true);
    }
  }
}

std::optional<Handover> handover_receive() {
  const std::string path = path_of_file();
  if (path.empty()) {
    return std::nullopt;
  }
  unlink((path + kWantedSuffix).c_str());  // it was meant for a process that has ended in another way
  std::optional<Handover> handover = handover_from_bytes(take_file(path));
  const Handover now = handover_of_now();
  if (!handover || handover->boot != now.boot || handover->network != now.network ||
      handover->written_at > now.written_at || now.written_at - handover->written_at > kFreshFor) {
    return std::nullopt;
  }
  return handover;
}

}  // namespace dnssd
