// SPDX-License-Identifier: MIT
#include "simulation/wire.h"

#include <algorithm>
#include <cstdio>
#include <optional>

namespace simulation {
namespace {

char fold(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

constexpr std::uint64_t kHashBegin = 0xcbf29ce484222325U;

// FNV-1a.
std::uint64_t hash_bytes(std::uint64_t hash, std::string_view text, bool folds) {
  for (const char c : text) {
    hash = (hash ^ static_cast<std::uint8_t>(folds ? fold(c) : c)) * 0x100000001b3U;
  }
  return hash;
}

// How many bytes stand before the names in rdata of this type; npos: there are none that are compared without case.
std::size_t names_begin(std::uint16_t type) {
  switch (type) {
    case mdns::kTypePtr:
    case mdns::kTypeCname:
    case mdns::kTypeNs:
    case mdns::kTypeDname:
      return 0;
    case mdns::kTypeSrv:
      return 6;
    default:
      return std::string_view::npos;
  }
}

}  // namespace

std::string text_of(std::string_view name) {
  std::string text;
  for (std::size_t at = 0; at < name.size() && name[at] != 0;) {
    const std::size_t length = static_cast<std::uint8_t>(name[at]);
    for (const char c : name.substr(at + 1, length)) {
      text += c > ' ' && c < 0x7F ? c : c == ' ' ? '_' : '?';
    }
    text += '.';
    at += 1 + length;
  }
  return text;
}

std::string text_of(std::uint16_t type, std::string_view rdata) {
  const std::size_t names = names_begin(type);
  if (names != std::string_view::npos && rdata.size() > names) {
    return text_of(rdata.substr(names));
  }
  std::string text;
  for (const char c : rdata.substr(0, 24)) {
    char buffer[8];
    const bool plain = type == mdns::kTypeTxt && c > ' ' && c < 0x7F;
    std::snprintf(buffer, sizeof buffer, plain ? "%c" : "%02x", static_cast<std::uint8_t>(c));
    text += buffer;
  }
  return text;
}

std::string srv_target(std::string_view rdata) {
  return std::string(rdata.size() > 6 ? rdata.substr(6) : std::string_view("\0", 1));
}

std::string folded(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), fold);
  return result;
}

std::uint64_t hash_name(std::string_view name) { return hash_bytes(kHashBegin, name, true); }

std::uint64_t hash_set(std::uint64_t name_hash, std::uint16_t type) {
  return (name_hash ^ type) * 0x9e3779b97f4a7c15U + type;
}

std::uint64_t hash_record(std::uint64_t set_hash, std::uint16_t type, std::string_view rdata) {
  const std::size_t names = std::min(names_begin(type), rdata.size());
  return hash_bytes(hash_bytes(set_hash, rdata.substr(0, names), false), rdata.substr(names), true);
}

namespace {

// Walks through a message and stops at the first fault. Data that its record's length leads over is none that stops it:
// who leaves that record out reads on behind it.
struct Walk {
  mdns::Bytes bytes;
  std::size_t at = 0;
  const char* fault = nullptr;
  const char* data_fault = nullptr;

  std::uint32_t number(std::size_t size) {
    if (bytes.size() - at < size) {
      fault = "a number runs beyond the end";
      return 0;
    }
    std::uint32_t value = 0;
    for (; size > 0; --size) {
      value = value << 8U | bytes[at++];
    }
    return value;
  }

  std::string name() {
    std::string name;
    std::size_t place = at;
    bool jumped = false;
    while (place < bytes.size()) {
      const std::size_t length = bytes[place];
      if (length >= 0xC0) {
        const std::size_t target = place + 1 < bytes.size() ? (length & 0x3FU) << 8U | bytes[place + 1] : SIZE_MAX;
        if (target >= place || target < 12) {
          break;
        }
        at = jumped ? at : place + 2;
        jumped = true;
        place = target;
        continue;
      }
      if (length > 63 || name.size() + length + 1 > 256 || bytes.size() - place < length + 1) {
        break;
      }
      name.append(reinterpret_cast<const char*>(&bytes[place]), length + 1);
      place += length + 1;
      if (length == 0) {
        at = jumped ? at : place;
        return name;
      }
    }
    fault = "a name is not well formed";
    return {'\0'};
  }

  std::string plain(std::size_t size) {
    if (bytes.size() - at < size) {
      fault = "data runs beyond the end";
      return {};
    }
    at += size;
    return {reinterpret_cast<const char*>(bytes.data() + at - size), size};
  }
};

// Nothing when the data is malformed for its type.
std::optional<std::string> read_rdata(Walk& walk, std::uint16_t type) {
  const std::size_t size = walk.number(2);
  const std::size_t end = walk.at + size;
  if (walk.fault != nullptr || end > walk.bytes.size()) {
    walk.fault = "data runs beyond the end";
    return {};
  }
  const std::size_t names = names_begin(type);
  if (names == std::string_view::npos && type != mdns::kTypeNsec) {
    return walk.plain(size);
  }
  std::string rdata = walk.plain(std::min(names == std::string_view::npos ? 0 : names, size));
  rdata += walk.name();
  if (walk.fault != nullptr || walk.at > end) {
    walk.data_fault = walk.fault != nullptr ? walk.fault : "a name in data is longer than the data";
    walk.fault = nullptr;
    walk.at = end;
    return {};
  }
  return rdata + walk.plain(end - walk.at);
}

std::optional<WireRecord> read_record(Walk& walk, Part part) {
  WireRecord record;
  record.part = part;
  record.name = walk.name();
  record.type = static_cast<std::uint16_t>(walk.number(2));
  const std::uint32_t klass = walk.number(2);
  record.klass = klass & 0x7FFFU;
  record.flush = (klass & 0x8000U) != 0;
  record.ttl = walk.number(4);
  const std::optional<std::string> rdata = read_rdata(walk, record.type);
  if (!rdata) {
    return {};
  }
  record.rdata = *rdata;
  record.name_hash = hash_name(record.name);
  record.set_hash = hash_set(record.name_hash, record.type);
  record.hash = hash_record(record.set_hash, record.type, record.rdata);
  return record;
}

WireQuestion read_question(Walk& walk) {
  WireQuestion question;
  question.name = walk.name();
  question.type = static_cast<std::uint16_t>(walk.number(2));
  const std::uint32_t klass = walk.number(2);
  question.klass = klass & 0x7FFFU;
  question.unicast = (klass & 0x8000U) != 0;
  question.name_hash = hash_name(question.name);
  question.set_hash = hash_set(question.name_hash, question.type);
  return question;
}

}  // namespace

WireMessage read_wire(mdns::Bytes bytes) {
  WireMessage message;
  Walk walk{bytes};
  message.size = bytes.size();
  message.id = static_cast<std::uint16_t>(walk.number(2));
  message.flags = static_cast<std::uint16_t>(walk.number(2));
  std::uint32_t counts[4];
  for (std::uint32_t& count : counts) {
    count = walk.number(2);
  }
  for (; counts[0] > 0 && walk.fault == nullptr; --counts[0]) {
    message.questions.push_back(read_question(walk));
  }
  for (const Part part : {Part::answer, Part::authority, Part::additional}) {
    for (std::uint32_t left = counts[1 + static_cast<int>(part)]; left > 0 && walk.fault == nullptr; --left) {
      if (std::optional<WireRecord> record = read_record(walk, part)) {
        message.records.push_back(std::move(*record));
      }
    }
  }
  walk.fault = walk.fault == nullptr && walk.at != bytes.size() ? "bytes are left behind the last record" : walk.fault;
  message.fault = walk.fault == nullptr ? walk.data_fault : walk.fault;
  return message;
}

bool is_probe_for(const WireMessage& message, const WireQuestion& question) {
  return !message.is_response() &&
         std::any_of(message.records.begin(), message.records.end(), [&](const WireRecord& record) {
           return record.part == Part::authority && record.name_hash == question.name_hash;
         });
}

std::string text_of(const WireMessage& message) {
  std::string text = message.is_response() ? "response" : "query";
  text += message.is_truncated() ? " TC" : "";
  for (const WireQuestion& question : message.questions) {
    text += " [" + text_of(question.name) + " " + std::to_string(question.type) + (question.unicast ? " QU" : "") + "]";
  }
  for (const WireRecord& record : message.records) {
    text += record.part == Part::answer ? " " : record.part == Part::authority ? " auth:" : " add:";
    text += text_of(record.name) + " " + std::to_string(record.type) + (record.flush ? " flush " : " ") +
            std::to_string(record.ttl) + "s " + text_of(record.type, record.rdata) + ";";
  }
  if (message.fault != nullptr) {
    text += std::string(" FAULT: ") + message.fault;
  }
  return text;
}

}  // namespace simulation
