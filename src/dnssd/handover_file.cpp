// SPDX-License-Identifier: MIT
#include "dnssd/handover_file.h"

#include <cstring>
#include <type_traits>

#include "dnssd/dnssd.h"

namespace dnssd {
namespace {

constexpr std::string_view kMagic = "MDNSHAND";
constexpr std::uint32_t kLayout = 1;

// By it a file is noticed that was cut short or scribbled over. Who forges one has to be kept out of its directory.
std::uint64_t hash_of(std::string_view bytes) { return std::hash<std::string_view>()(bytes); }

template <typename Number>
void put(std::string& out, Number number) {
  static_assert(std::is_integral_v<Number>);
  out.append(reinterpret_cast<const char*>(&number), sizeof number);
}

void put_text(std::string& out, std::string_view text) {
  put(out, static_cast<std::uint32_t>(text.size()));
  out.append(text);
}

// What is left of the bytes. Once anything is missing nothing is there any more.
struct Rest {
  std::string_view bytes;
  bool is_whole = true;
};

std::string_view take(Rest& rest, std::size_t size) {
  if (!rest.is_whole || size > rest.bytes.size()) {
    rest.is_whole = false;
    return {};
  }
  const std::string_view taken = rest.bytes.substr(0, size);
  rest.bytes.remove_prefix(size);
  return taken;
}

template <typename Number>
Number take_number(Rest& rest) {
  Number number{};
  const std::string_view taken = take(rest, sizeof number);
  if (rest.is_whole) {
    std::memcpy(&number, taken.data(), sizeof number);
  }
  return number;
}

std::string take_text(Rest& rest) { return std::string(take(rest, take_number<std::uint32_t>(rest))); }

std::string take_name(Rest& rest) {
  std::string name = take_text(rest);
  rest.is_whole = rest.is_whole && mdns::is_name(name);
  return name;
}

void put_record(std::string& out, const mdns::Published& record) {
  put_text(out, record.name);
  put(out, record.data.type);
  put(out, record.data.ttl);
  put_text(out, record.data.rdata);
  put(out, static_cast<std::uint8_t>(record.claim));
  put(out, record.announcements_left);
  for (const mdns::Time at : record.multicast_at) {
    put(out, at);
  }
}

mdns::Published take_record(Rest& rest, mdns::Time written_at) {
  mdns::Published record;
  record.name = take_name(rest);
  record.data.type = take_number<std::uint16_t>(rest);
  record.data.ttl = take_number<std::uint32_t>(rest);
  record.data.rdata = take_text(rest);
  record.claim = static_cast<mdns::Claim>(take_number<std::uint8_t>(rest));
  record.announcements_left = take_number<std::uint8_t>(rest);
  for (mdns::Time& at : record.multicast_at) {
    at = take_number<mdns::Time>(rest);
    rest.is_whole = rest.is_whole && at >= mdns::kLongAgo && at <= written_at;
  }
  const bool is_claim =
      record.claim == mdns::Claim::shared || record.claim == mdns::Claim::unique || record.claim == mdns::Claim::yielding;
  rest.is_whole = rest.is_whole && is_claim && record.announcements_left <= mdns::kAnnouncements &&
                  is_publishable(record.data.type, record.data.rdata);
  return record;
}

void put_interface(std::string& out, const HandedInterface& interface) {
  put(out, interface.index);
  put_text(out, interface.name);
  put(out, static_cast<std::uint32_t>(interface.records.size()));
  for (const mdns::Published& record : interface.records) {
    put_record(out, record);
  }
  put(out, static_cast<std::uint32_t>(interface.hosts.size()));
  for (const auto& [name, number] : interface.hosts) {
    put_text(out, name);
    put(out, number);
  }
}

HandedInterface take_interface(Rest& rest, mdns::Time written_at) {
  HandedInterface interface;
  interface.index = take_number<std::uint32_t>(rest);
  interface.name = take_text(rest);
  for (auto left = take_number<std::uint32_t>(rest); left > 0 && rest.is_whole; --left) {
    interface.records.push_back(take_record(rest, written_at));
  }
  for (auto left = take_number<std::uint32_t>(rest); left > 0 && rest.is_whole; --left) {
    std::string name = take_name(rest);
    interface.hosts.emplace_back(std::move(name), take_number<std::uint32_t>(rest));
  }
  return interface;
}

}  // namespace

std::string handover_to_bytes(const Handover& handover) {
  std::string out(kMagic);
  put(out, kLayout);
  put_text(out, handover.boot);
  put(out, handover.network);
  put(out, handover.written_at);
  put(out, static_cast<std::uint32_t>(handover.interfaces.size()));
  for (const HandedInterface& interface : handover.interfaces) {
    put_interface(out, interface);
  }
  put(out, hash_of(out));
  return out;
}

std::optional<Handover> handover_from_bytes(std::string_view bytes) {
  Rest hash{bytes.substr(bytes.size() - std::min(bytes.size(), sizeof(std::uint64_t)))};
  Rest rest{bytes.substr(0, bytes.size() - hash.bytes.size())};
  if (take_number<std::uint64_t>(hash) != hash_of(rest.bytes) || take(rest, kMagic.size()) != kMagic ||
      take_number<std::uint32_t>(rest) != kLayout) {
    return std::nullopt;
  }
  Handover handover;
  handover.boot = take_text(rest);
  handover.network = take_number<std::uint64_t>(rest);
  handover.written_at = take_number<mdns::Time>(rest);
  for (auto left = take_number<std::uint32_t>(rest); left > 0 && rest.is_whole; --left) {
    handover.interfaces.push_back(take_interface(rest, handover.written_at));
  }
  return rest.is_whole && rest.bytes.empty() ? std::optional(std::move(handover)) : std::nullopt;
}

}  // namespace dnssd
