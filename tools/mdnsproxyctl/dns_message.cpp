// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/dns_message.h"

#include <arpa/inet.h>

#include <algorithm>
#include <string_view>

namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kLongestLabel = 63;
constexpr std::size_t kMostLabels = 128;  // a name has at most 255 bytes
constexpr std::uint16_t kInternet = 1;
constexpr std::string_view kVendorEntry = "vender=Zenmor";

using Bytes = std::span<const std::uint8_t>;

void put16(std::vector<std::uint8_t>& message, std::uint16_t value) {
  message.push_back(static_cast<std::uint8_t>(value >> 8));
  message.push_back(static_cast<std::uint8_t>(value & 0xFF));
}

void put_name(std::vector<std::uint8_t>& message, const DnsName& name) {
  for (const std::string& label : name) {
    const std::size_t length = std::min(label.size(), kLongestLabel);
    message.push_back(static_cast<std::uint8_t>(length));
    message.insert(message.end(), label.begin(), label.begin() + static_cast<std::ptrdiff_t>(length));
  }
  message.push_back(0);
}

// Takes values from a message, front to back. What is not whole fails, and everything after it.
class Reader {
 public:
  explicit Reader(Bytes message, std::size_t position = 0) : message_(message), position_(position) {}

  std::size_t position() const { return position_; }
  bool failed() const { return failed_; }

  std::uint16_t take16() {
    const Bytes bytes = take(2);
    return failed_ ? std::uint16_t{0} : static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
  }

  Bytes take(std::size_t size) {
    if (failed_ || size > message_.size() - position_) {
      failed_ = true;
      return {};
    }
    const Bytes bytes = message_.subspan(position_, size);
    position_ += size;
    return bytes;
  }

  // Follows compression (RFC 1035 section 4.1.4), each pointer to a place before the last one, so that it ends.
  DnsName take_name() {
    DnsName name;
    std::size_t at = position_;
    std::size_t before = position_;
    bool jumped = false;
    while (!failed_) {
      if (at >= message_.size() || name.size() > kMostLabels) {
        failed_ = true;
      } else if (const std::uint8_t length = message_[at]; length >= 0xC0) {
        const std::size_t target = at + 1 < message_.size() ? ((length & 0x3FU) << 8 | message_[at + 1]) : message_.size();
        failed_ = target >= before;
        position_ = jumped ? position_ : at + 2;
        jumped = true;
        at = before = target;
      } else if (length > kLongestLabel || length >= message_.size() - at) {
        failed_ = true;
      } else if (length == 0) {
        position_ = jumped ? position_ : at + 1;
        return name;
      } else {
        name.emplace_back(reinterpret_cast<const char*>(&message_[at + 1]), length);
        at += length + 1U;
      }
    }
    return {};
  }

 private:
  Bytes message_;
  std::size_t position_;
  bool failed_ = false;
};

std::string address_text(int family, Bytes data) {
  char text[INET6_ADDRSTRLEN] = {};
  return data.size() == (family == AF_INET ? 4U : 16U) ? inet_ntop(family, data.data(), text, sizeof text) : "";
}

// Whether one of the strings of TXT data is the gateway's.
bool holds_vendor_entry(Bytes data) {
  while (!data.empty()) {
    const std::size_t length = std::min<std::size_t>(data[0], data.size() - 1);
    if (std::string_view(reinterpret_cast<const char*>(data.data()) + 1, length) == kVendorEntry) {
      return true;
    }
    data = data.subspan(1 + length);
  }
  return false;
}

// Reads what is in a record's data, which begins at `begin`. False: it is not well formed, or of another type.
bool take_data(Bytes message, std::size_t begin, Bytes data, DnsRecord& record) {
  Reader reader(message.first(begin + data.size()), begin);
  switch (static_cast<DnsType>(record.type)) {
    case DnsType::a:
      record.address = address_text(AF_INET, data);
      return !record.address.empty();
    case DnsType::aaaa:
      record.address = address_text(AF_INET6, data);
      return !record.address.empty();
    case DnsType::txt:
      record.through_gateway = holds_vendor_entry(data);
      return true;
    case DnsType::srv:
      reader.take(4);
      record.port = reader.take16();
      [[fallthrough]];
    case DnsType::ptr:
      record.target = reader.take_name();
      return !reader.failed();
  }
  return false;
}

}  // namespace

DnsName dns_name(const std::string& dotted) {
  DnsName name;
  std::string_view rest = dotted;
  while (!rest.empty()) {
    const std::size_t dot = std::min(rest.find('.'), rest.size());
    if (dot > 0) {
      name.emplace_back(rest.substr(0, dot));
    }
    rest.remove_prefix(std::min(dot + 1, rest.size()));
  }
  return name;
}

bool same_name(const DnsName& one, const DnsName& other) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  const auto same_label = [&](const std::string& a, const std::string& b) { return std::ranges::equal(a, b, {}, lower, lower); };
  return std::ranges::equal(one, other, same_label);
}

std::vector<std::uint8_t> encode_query(std::uint16_t id, const std::vector<DnsQuestion>& questions) {
  std::vector<std::uint8_t> message;
  put16(message, id);
  put16(message, 0);
  put16(message, static_cast<std::uint16_t>(questions.size()));
  message.resize(kHeaderSize);
  for (const DnsQuestion& each : questions) {
    put_name(message, each.name);
    put16(message, static_cast<std::uint16_t>(each.type));
    put16(message, kInternet);
  }
  return message;
}

std::optional<std::vector<DnsRecord>> decode_response(Bytes message) {
  Reader reader(message);
  reader.take16();
  const std::uint16_t flags = reader.take16();
  const unsigned questions = reader.take16();
  const unsigned answers = reader.take16();
  const unsigned authorities = reader.take16();
  const unsigned additionals = reader.take16();
  if (reader.failed() || (flags & 0x8000U) == 0) {
    return std::nullopt;
  }
  for (unsigned i = 0; i < questions && !reader.failed(); ++i) {
    reader.take_name();
    reader.take(4);
  }
  std::vector<DnsRecord> records;
  for (unsigned left = answers + authorities + additionals; left > 0; --left) {
    DnsRecord record = {.name = reader.take_name(), .type = reader.take16(), .target = {}, .address = {}};
    reader.take(6);  // class and TTL
    const std::uint16_t size = reader.take16();
    const std::size_t begin = reader.position();
    const Bytes data = reader.take(size);
    if (reader.failed()) {
      break;
    }
    if (take_data(message, begin, data, record)) {
      records.push_back(record);
    }
  }
  return records;
}
