// SPDX-License-Identifier: MIT
#include "packet.h"

#include <algorithm>

namespace air {
namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kNameMax = 255;        // RFC 1035 section 2.3.4
constexpr std::uint8_t kPointerBits = 0xC0;  // RFC 1035 section 4.1.4
constexpr int kPointersMax = 64;

void put16(Bytes& bytes, std::uint16_t value) {
  bytes.push_back(static_cast<std::uint8_t>(value >> 8));
  bytes.push_back(static_cast<std::uint8_t>(value));
}

void put32(Bytes& bytes, std::uint32_t value) {
  put16(bytes, static_cast<std::uint16_t>(value >> 16));
  put16(bytes, static_cast<std::uint16_t>(value));
}

void set16(Bytes& bytes, std::size_t at, std::uint16_t value) {
  bytes[at] = static_cast<std::uint8_t>(value >> 8);
  bytes[at + 1] = static_cast<std::uint8_t>(value);
}

// Walks a message; every step says whether there was room for it.
struct Reader {
  std::span<const std::uint8_t> data;
  std::size_t at = 0;

  bool u16(std::uint16_t& value) {
    if (data.size() - at < 2)
      return false;
    value = static_cast<std::uint16_t>(data[at] << 8 | data[at + 1]);
    at += 2;
    return true;
  }

  bool u32(std::uint32_t& value) {
    std::uint16_t high = 0, low = 0;
    if (!u16(high) || !u16(low))
      return false;
    value = static_cast<std::uint32_t>(high) << 16 | low;
    return true;
  }

  // Appends the name's labels to `name`, following pointers; `at` goes behind the name as it stands here.
  bool name_here(std::string& name) {
    std::size_t from = at;
    bool jumped = false;
    for (int pointers = 0; pointers <= kPointersMax;) {
      if (from >= data.size())
        return false;
      const std::uint8_t length = data[from];
      if ((length & kPointerBits) == kPointerBits) {
        if (data.size() - from < 2)
          return false;
        if (!jumped)
          at = from + 2;
        jumped = true;
        ++pointers;
        from = static_cast<std::size_t>((length & ~kPointerBits) << 8 | data[from + 1]);
        continue;
      }
      if (length > 63 || data.size() - from < length + 1U || name.size() + length + 1U > kNameMax)
        return false;
      name.append(reinterpret_cast<const char*>(data.data() + from), length + 1U);
      from += length + 1U;
      if (length == 0) {
        if (!jumped)
          at = from;
        return true;
      }
    }
    return false;
  }
};

// The name inside rdata, for the types that have one: behind three numbers in SRV, at once in PTR.
bool read_target(Reader reader, std::size_t end, Record& record) {
  if (record.type == kTypeSrv)
    reader.at += 6;
  if (record.type != kTypeSrv && record.type != kTypePtr)
    return true;
  return reader.at <= end && reader.name_here(record.target) && reader.at <= end;
}

bool read_record(Reader& reader, Record& record) {
  std::uint16_t record_class = 0, length = 0;
  if (!reader.name_here(record.name) || !reader.u16(record.type) || !reader.u16(record_class) ||
      !reader.u32(record.ttl) || !reader.u16(length) || reader.data.size() - reader.at < length) {
    return false;
  }
  record.name = folded(std::move(record.name));
  record.rdata.assign(reinterpret_cast<const char*>(reader.data.data() + reader.at), length);
  const std::size_t end = reader.at + length;
  if (!read_target(reader, end, record))
    return false;
  reader.at = end;
  return true;
}

bool read_records(Reader& reader, std::uint16_t count, std::vector<Record>* records) {
  for (; count > 0; --count) {
    Record record;
    if (!read_record(reader, record))
      return false;
    if (records != nullptr)
      records->push_back(std::move(record));
  }
  return true;
}

bool read_questions(Reader& reader, std::uint16_t count, std::vector<Question>& questions) {
  for (; count > 0; --count) {
    Question question;
    std::uint16_t question_class = 0;
    if (!reader.name_here(question.name) || !reader.u16(question.type) || !reader.u16(question_class))
      return false;
    question.name = folded(std::move(question.name));
    questions.push_back(std::move(question));
  }
  return true;
}

}  // namespace

std::string make_name(std::initializer_list<std::string_view> labels) {
  std::string name;
  for (const std::string_view label : labels) {
    name.push_back(static_cast<char>(label.size()));
    name.append(label);
  }
  name.push_back('\0');
  return name;
}

std::string make_dotted_name(std::string_view dotted) {
  std::string name;
  while (!dotted.empty()) {
    const std::size_t dot = std::min(dotted.find('.'), dotted.size());
    name.push_back(static_cast<char>(dot));
    name.append(dotted.substr(0, dot));
    dotted.remove_prefix(std::min(dot + 1, dotted.size()));
  }
  name.push_back('\0');
  return name;
}

std::string folded(std::string name) {
  // Label lengths are below 64 and so never letters.
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char byte) { return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte; });
  return name;
}

std::string first_label(std::string_view name) {
  if (name.empty())
    return {};
  return std::string(name.substr(1, static_cast<unsigned char>(name[0])));
}

Writer::Writer(std::uint16_t message_flags) : bytes(kHeaderSize), flags(message_flags) {}

void Writer::name(const std::string& full) {
  std::size_t at = 0;
  while (full[at] != '\0') {
    const std::string suffix = full.substr(at);
    if (const auto known = suffixes_.find(suffix); known != suffixes_.end()) {
      put16(bytes, static_cast<std::uint16_t>(kPointerBits << 8 | known->second));
      return;
    }
    if (bytes.size() < 0x3FFF)
      suffixes_.emplace(suffix, static_cast<std::uint16_t>(bytes.size()));
    const std::size_t label = static_cast<unsigned char>(full[at]) + 1U;
    bytes.insert(bytes.end(), full.begin() + static_cast<std::ptrdiff_t>(at),
                 full.begin() + static_cast<std::ptrdiff_t>(at + label));
    at += label;
  }
  bytes.push_back(0);
}

void Writer::question(const std::string& question_name, std::uint16_t type) {
  name(question_name);
  put16(bytes, type);
  put16(bytes, kClassIn);
  ++questions;
}

void Writer::record(const std::string& record_name, std::uint16_t type, std::uint16_t record_class, std::uint32_t ttl,
                    std::string_view rdata) {
  name(record_name);
  put16(bytes, type);
  put16(bytes, record_class);
  put32(bytes, ttl);
  const std::size_t length_at = bytes.size();
  put16(bytes, 0);
  if (type == kTypePtr) {
    name(std::string(rdata));
  } else {
    bytes.insert(bytes.end(), rdata.begin(), rdata.end());
  }
  set16(bytes, length_at, static_cast<std::uint16_t>(bytes.size() - length_at - 2));
}

void Writer::answer(const std::string& record_name, std::uint16_t type, std::uint16_t record_class, std::uint32_t ttl,
                    std::string_view rdata) {
  record(record_name, type, record_class, ttl, rdata);
  ++answers;
}

void Writer::additional(const std::string& record_name, std::uint16_t type, std::uint16_t record_class,
                        std::uint32_t ttl, std::string_view rdata) {
  record(record_name, type, record_class, ttl, rdata);
  ++additionals;
}

void Writer::truncated() { flags |= kQueryTruncated; }

const Bytes& Writer::finish() {
  set16(bytes, 2, flags);
  set16(bytes, 4, questions);
  set16(bytes, 6, answers);
  set16(bytes, 10, additionals);
  return bytes;
}

std::optional<Message> read_message(std::span<const std::uint8_t> data) {
  Reader reader{data};
  std::uint16_t id = 0, questions = 0, answers = 0, authorities = 0, additionals = 0;
  Message message;
  const bool whole = reader.u16(id) && reader.u16(message.flags) && reader.u16(questions) && reader.u16(answers) &&
                     reader.u16(authorities) && reader.u16(additionals) &&
                     read_questions(reader, questions, message.questions) &&
                     read_records(reader, answers, &message.answers) && read_records(reader, authorities, nullptr) &&
                     read_records(reader, additionals, &message.additionals);
  if (!whole)
    return std::nullopt;
  return message;
}

}  // namespace air
