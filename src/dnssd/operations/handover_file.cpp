// SPDX-License-Identifier: MIT
#include "dnssd/operations/handover_file.h"

#include <cstring>
#include <type_traits>

#include "dnssd/base/publishable.h"
#include "mdns/wire/name.h"

namespace dnssd {
namespace {

constexpr std::string_view kMagic = "MDNSHAND";
constexpr std::uint32_t kLayout = 1;

// Detects a damaged file, not a forged one: only trusted users may have write access to its directory.
std::uint64_t file_hash(std::string_view bytes) { return std::hash<std::string_view>()(bytes); }

template <typename Number>
void put(std::string& out, Number number) {
  static_assert(std::is_integral_v<Number>);
  out.append(reinterpret_cast<const char*>(&number), sizeof number);
}

void put_string(std::string& out, std::string_view text) {
  put(out, static_cast<std::uint32_t>(text.size()));
  out.append(text);
}

// The bytes that are not read yet. Once a read fails, is_whole is false and all later reads fail.
struct Unread {
  std::string_view bytes;
  bool is_whole = true;
};

std::string_view take(Unread& unread, std::size_t size) {
  if (!unread.is_whole || size > unread.bytes.size()) {
    unread.is_whole = false;
    return {};
  }
  const std::string_view taken = unread.bytes.substr(0, size);
  unread.bytes.remove_prefix(size);
  return taken;
}

template <typename Number>
Number take_number(Unread& unread) {
  Number number{};
  const std::string_view taken = take(unread, sizeof number);
  if (unread.is_whole) {
    std::memcpy(&number, taken.data(), sizeof number);
  }
  return number;
}

std::string take_string(Unread& unread) { return std::string(take(unread, take_number<std::uint32_t>(unread))); }

std::string take_wire_name(Unread& unread) {
  std::string name = take_string(unread);
  unread.is_whole = unread.is_whole && mdns::is_name(name);
  return name;
}

void put_record(std::string& out, const mdns::Published& record) {
  put_string(out, record.name);
  put(out, record.data.type);
  put(out, record.data.ttl);
  put_string(out, record.data.rdata);
  put(out, static_cast<std::uint8_t>(record.claim));
  put(out, record.announcements_left);
  for (const mdns::Time at : record.multicast_at) {
    put(out, at);
  }
}

mdns::Published take_published(Unread& unread, mdns::Time written_at) {
  mdns::Published record;
  record.name = take_wire_name(unread);
  record.data.type = take_number<std::uint16_t>(unread);
  record.data.ttl = take_number<std::uint32_t>(unread);
  record.data.rdata = take_string(unread);
  record.claim = static_cast<mdns::Claim>(take_number<std::uint8_t>(unread));
  record.announcements_left = take_number<std::uint8_t>(unread);
  for (mdns::Time& at : record.multicast_at) {
    at = take_number<mdns::Time>(unread);
    unread.is_whole = unread.is_whole && at >= mdns::kLongAgo && at <= written_at;
  }
  const bool is_claim = record.claim == mdns::Claim::shared || record.claim == mdns::Claim::unique ||
                        record.claim == mdns::Claim::yielding;
  unread.is_whole = unread.is_whole && is_claim && record.announcements_left <= mdns::kAnnouncements &&
                    is_publishable(record.data.type, record.data.rdata);
  return record;
}

void put_interface(std::string& out, const HandedInterface& interface) {
  put(out, interface.index);
  put_string(out, interface.name);
  put(out, static_cast<std::uint32_t>(interface.records.size()));
  for (const mdns::Published& record : interface.records) {
    put_record(out, record);
  }
  put(out, static_cast<std::uint32_t>(interface.hosts.size()));
  for (const auto& [name, number] : interface.hosts) {
    put_string(out, name);
    put(out, number);
  }
}

HandedInterface take_interface(Unread& unread, mdns::Time written_at) {
  HandedInterface interface;
  interface.index = take_number<std::uint32_t>(unread);
  interface.name = take_string(unread);
  for (auto left = take_number<std::uint32_t>(unread); left > 0 && unread.is_whole; --left) {
    interface.records.push_back(take_published(unread, written_at));
  }
  for (auto left = take_number<std::uint32_t>(unread); left > 0 && unread.is_whole; --left) {
    std::string name = take_wire_name(unread);
    interface.hosts.emplace_back(std::move(name), take_number<std::uint32_t>(unread));
  }
  return interface;
}

}  // namespace

std::string handover_to_bytes(const Handover& handover) {
  std::string out(kMagic);
  put(out, kLayout);
  put_string(out, handover.boot);
  put(out, handover.network);
  put(out, handover.written_at);
  put(out, static_cast<std::uint32_t>(handover.interfaces.size()));
  for (const HandedInterface& interface : handover.interfaces) {
    put_interface(out, interface);
  }
  put(out, file_hash(out));
  return out;
}

std::optional<Handover> handover_from_bytes(std::string_view bytes) {
  Unread hash{bytes.substr(bytes.size() - std::min(bytes.size(), sizeof(std::uint64_t)))};
  Unread unread{bytes.substr(0, bytes.size() - hash.bytes.size())};
  if (take_number<std::uint64_t>(hash) != file_hash(unread.bytes) || take(unread, kMagic.size()) != kMagic ||
      take_number<std::uint32_t>(unread) != kLayout) {
    return std::nullopt;
  }
  Handover handover;
  handover.boot = take_string(unread);
  handover.network = take_number<std::uint64_t>(unread);
  handover.written_at = take_number<mdns::Time>(unread);
  for (auto left = take_number<std::uint32_t>(unread); left > 0 && unread.is_whole; --left) {
    handover.interfaces.push_back(take_interface(unread, handover.written_at));
  }
  return unread.is_whole && unread.bytes.empty() ? std::optional(std::move(handover)) : std::nullopt;
}

}  // namespace dnssd
