// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/ports.h"

#include <linux/capability.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace {

namespace fs = std::filesystem;

std::string content_of(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The number, when the text is one of this base and nothing else; else `otherwise`.
template <typename Number>
Number number_in(const std::string& text, int base, Number otherwise) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size() ? number : otherwise;
}

// The inode of what a descriptor's link says, "socket:[1234]"; 0 for anything else.
std::uint64_t socket_inode(const std::string& link) {
  constexpr std::string_view kBefore = "socket:[";
  const bool is_socket = link.starts_with(kBefore) && link.ends_with("]");
  return is_socket ? number_in<std::uint64_t>(link.substr(kBefore.size(), link.size() - kBefore.size() - 1), 10, 0) : 0;
}

// Which process has which of these inodes, for those that the caller may look into.
std::map<std::uint64_t, std::uint32_t> processes_of(const std::vector<UdpSocket>& sockets) {
  std::map<std::uint64_t, std::uint32_t> found;
  std::error_code error;
  for (const fs::directory_entry& process : fs::directory_iterator("/proc", error)) {
    const auto number = number_in<std::uint32_t>(process.path().filename().string(), 10, 0);
    std::error_code hidden;
    fs::directory_iterator descriptor =
        number != 0 ? fs::directory_iterator(process.path() / "fd", hidden) : fs::directory_iterator();
    while (!hidden && descriptor != fs::directory_iterator()) {
      std::error_code gone;
      const std::uint64_t inode = socket_inode(fs::read_symlink(descriptor->path(), gone).string());
      if (inode != 0 && std::ranges::find(sockets, inode, &UdpSocket::inode) != sockets.end()) {
        found[inode] = number;
      }
      descriptor.increment(hidden);
    }
  }
  return found;
}

std::string process_name(std::uint32_t process) {
  std::string name = process != 0 ? content_of("/proc/" + std::to_string(process) + "/comm") : "";
  return name.substr(0, name.find('\n'));
}

// The value of a line "Name:\tvalue ..." up to its first white space.
std::string status_value(const std::string& status, const std::string& name) {
  std::istringstream lines(status);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word;
    std::string value;
    if (words >> word >> value && word == name + ":") {
      return value;
    }
  }
  return "";
}

}  // namespace

std::vector<UdpSocket> udp_sockets(const std::string& text) {
  std::vector<UdpSocket> sockets;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream stream(line);
    const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    const std::size_t colon = words.size() > 12 ? words[1].rfind(':') : std::string::npos;
    if (colon == std::string::npos) {
      continue;
    }
    const auto port = number_in<std::uint16_t>(words[1].substr(colon + 1), 16, 0);
    const auto inode = number_in<std::uint64_t>(words[9], 10, 0);
    if (port != 0 && inode != 0) {
      sockets.push_back(
          {port, number_in<std::uint32_t>(words[7], 10, 0), inode, number_in<std::uint64_t>(words[12], 10, 0)});
    }
  }
  return sockets;
}

std::vector<PortHolder> holders_of_port(std::uint16_t port) {
  std::vector<UdpSocket> sockets = udp_sockets(content_of("/proc/net/udp") + content_of("/proc/net/udp6"));
  std::erase_if(sockets, [&](const UdpSocket& each) { return each.port != port; });
  const std::map<std::uint64_t, std::uint32_t> processes = processes_of(sockets);
  std::vector<PortHolder> holders;
  for (const UdpSocket& each : sockets) {
    const auto owner = processes.find(each.inode);
    const std::uint32_t process = owner != processes.end() ? owner->second : 0;
    auto holder = std::ranges::find_if(holders, [&](const PortHolder& one) {
      return one.process == process && (process != 0 || one.user == each.user);
    });
    if (holder == holders.end()) {
      holders.push_back({process, process_name(process), each.user, 0, 0});
      holder = holders.end() - 1;
    }
    holder->sockets += 1;
    holder->dropped += each.dropped;
  }
  return holders;
}

ProcessRights rights_of(std::uint32_t process) {
  const std::string status = content_of("/proc/" + std::to_string(process) + "/status");
  const std::string user = status_value(status, "Uid");
  const auto capabilities = number_in<std::uint64_t>(status_value(status, "CapEff"), 16, 0);
  return {!user.empty(), number_in<std::uint32_t>(user, 10, 0), (capabilities >> CAP_NET_ADMIN & 1) != 0};
}
