// SPDX-License-Identifier: MIT
#include "dnssd/message.h"

#include "dnssd/message_reader.h"
#include "dnssd/operations.h"

namespace dnssd {
namespace {

// An Ethernet frame's 1500 bytes less the headers of IPv6 and UDP, and a little for a tunnel's.
constexpr std::size_t kFrameBytes = 1440;
constexpr std::size_t kMessageBytesMax = 9000 - 48;

constexpr std::size_t kHeaderBytes = 12;
constexpr std::size_t kQuestionCountAt = 4;
constexpr std::size_t kAnswerCountAt = 6;
constexpr std::uint16_t kAuthoritativeResponse = 0x8400;
constexpr std::uint16_t kPointer = 0xC000;  // the two bits that make a length a pointer
constexpr std::size_t kPointerReach = 0x3FFF;

void put16(std::string& bytes, unsigned value) {
  bytes += static_cast<char>(value >> 8 & 0xFF);
  bytes += static_cast<char>(value & 0xFF);
}

void set16(std::string& bytes, std::size_t at, std::size_t value) {
  bytes[at] = static_cast<char>(value >> 8 & 0xFF);
  bytes[at + 1] = static_cast<char>(value & 0xFF);
}

// Takes back what was written since the message had that size.
void cut(Message& message, std::size_t size, const std::vector<std::string>& added) {
  message.bytes.resize(size);
  for (const std::string& text : added) {
    message.names.erase(text);
  }
}

// Writes `name`, its known tail as a pointer; what is written newly is noted in `added`, to be pointed at by later names.
void put_name(Message& message, Name name, std::vector<std::string>& added) {
  while (!name.labels.empty()) {
    const std::string text = name_to_text(name);
    const auto known = message.names.find(text);
    if (known != message.names.end()) {
      put16(message.bytes, kPointer | known->second);
      return;
    }
    if (message.bytes.size() <= kPointerReach) {
      message.names.emplace(text, static_cast<std::uint16_t>(message.bytes.size()));
      added.push_back(text);
    }
    message.bytes += static_cast<char>(name.labels[0].size());
    message.bytes += name.labels[0];
    name.labels.erase(name.labels.begin());
  }
  message.bytes += '\0';
}

void put_avahi_name(Message& message, const char* text, std::vector<std::string>& added) {
  const std::optional<Name> name = parse_name(text);
  put_name(message, name ? *name : Name{}, added);
}

void put_rdata(Message& message, AvahiRecord& record, std::vector<std::string>& added) {
  switch (record.key->type) {
    case AVAHI_DNS_TYPE_PTR:
      put_avahi_name(message, record.data.ptr.name, added);
      break;
    case AVAHI_DNS_TYPE_SRV:
      put16(message.bytes, record.data.srv.priority);
      put16(message.bytes, record.data.srv.weight);
      put16(message.bytes, record.data.srv.port);
      put_avahi_name(message, record.data.srv.name, added);
      break;
    default:
      message.bytes += rdata_of(record);
  }
}

void put_record(Message& message, AvahiRecord& record, std::uint32_t ttl, bool is_unique, std::vector<std::string>& added) {
  put_avahi_name(message, record.key->name, added);
  put16(message.bytes, record.key->type);
  put16(message.bytes, record.key->clazz | (is_unique ? kCacheFlushBit : 0u));
  put16(message.bytes, ttl >> 16);
  put16(message.bytes, ttl & 0xFFFF);
  const std::size_t length_at = message.bytes.size();
  put16(message.bytes, 0);
  put_rdata(message, record, added);
  set16(message.bytes, length_at, message.bytes.size() - length_at - 2);
}

}  // namespace

Message::Message() : bytes(kHeaderBytes, '\0') { set16(bytes, kMessageFlagsAt, kAuthoritativeResponse); }

Message message_query() {
  Message message;
  set16(message.bytes, kMessageFlagsAt, 0);
  return message;
}

bool message_ask(Message& message, const Name& name, std::uint16_t rrtype) {
  const std::size_t size_before = message.bytes.size();
  std::vector<std::string> added;
  put_name(message, name, added);
  put16(message.bytes, rrtype);
  put16(message.bytes, AVAHI_DNS_CLASS_IN);
  if (message.bytes.size() > kFrameBytes) {
    cut(message, size_before, added);
    return false;
  }
  set16(message.bytes, kQuestionCountAt, ++message.questions);
  return true;
}

void message_continues(Message& message) { set16(message.bytes, kMessageFlagsAt, kTruncatedBit); }

bool message_add(Message& message, AvahiRecord& record, std::uint32_t ttl, bool is_unique) {
  const std::size_t size_before = message.bytes.size();
  std::vector<std::string> added;
  put_record(message, record, ttl, is_unique, added);
  const bool is_alone = message.answers == 0 && message.questions == 0;
  if (message.bytes.size() > (is_alone ? kMessageBytesMax : kFrameBytes)) {
    cut(message, size_before, added);
    return false;
  }
  set16(message.bytes, kAnswerCountAt, ++message.answers);
  return true;
}

}  // namespace dnssd
