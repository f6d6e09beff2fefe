// SPDX-License-Identifier: MIT
// Multicast DNS messages that any host on the link hands to the engine.
//
// Claims: what is read is well formed and no larger than the message allows, and what has been read is written and read
// the same.

#include <vector>

#include "fuzz.h"
#include "mdns/wire/name.h"
#include "mdns/wire/reader.h"
#include "mdns/wire/writer.h"

using namespace mdns;

namespace {

using Sections = std::vector<const std::vector<Record>*>;

Sections sections_of(const Message& message) { return {&message.answers, &message.authorities, &message.additionals}; }

// What the reader has to walk through at most for the names of these, pointers included.
constexpr std::size_t allowance(std::size_t size) { return 16 * size + 512; }
std::size_t walk(std::string_view names) { return 2 * names.size() + 2; }

void check_record(const Record& record) {
  fuzz::claim(is_name(record.name), "an owner is a name");
  fuzz::claim(!record.rdata.empty() && is_rdata(record.type, record.rdata), "rdata is well formed");
  fuzz::claim(record.klass == kClassIn, "a record is of class IN");
  fuzz::claim(same_rdata(record.type, record.rdata, record.rdata), "rdata is the same as itself");
  const std::string_view target = target_of(record.type, record.rdata);
  fuzz::claim(target.empty() || is_name(target), "a target is a name");
  static_cast<void>(usual_ttl(record.name, record.type));
}

// Checks a message and returns what its names cost to read.
std::size_t check_message(const Message& message, std::size_t size) {
  std::size_t names = 0;
  std::size_t walked = 0;
  for (const Question& each : message.questions) {
    fuzz::claim(is_name(each.name), "a question's name is one");
    names += each.name.size();
    walked += walk(each.name);
  }
  for (const std::vector<Record>* records : sections_of(message)) {
    for (const Record& each : *records) {
      check_record(each);
      names += each.name.size() + (rdata_form(each.type).names != 0 ? each.rdata.size() : 0);
      walked += walk(each.name) + (rdata_form(each.type).names != 0 ? walk(each.rdata) : 0);
    }
  }
  fuzz::claim(names <= allowance(size) + size, "names are no larger than the message allows");
  return walked;
}

std::vector<std::uint8_t> write_message(const Message& message) {
  Writer writer = writer_new(message.is_response, message.id);
  writer.max = std::size_t{1} << 24;
  for (const Question& each : message.questions)
    fuzz::claim(writer_add_question(writer, each.name, each.type, each.unicast_response),
                "there is room for a question");
  Section section = Section::answers;
  for (const std::vector<Record>* records : sections_of(message)) {
    for (const Record& each : *records) {
      fuzz::claim(writer_add_record(writer, section, each.name, each.type, each.ttl, each.cache_flush, each.rdata),
                  "there is room");
    }
    section = section == Section::answers ? Section::authorities : Section::additionals;
  }
  if (message.is_truncated)
    writer_set_truncated(writer);
  return writer_take(writer);
}

bool is_same(const Question& a, const Question& b) {
  return a.name == b.name && a.type == b.type && a.unicast_response == b.unicast_response;
}

bool is_same(const Record& a, const Record& b) {
  return a.name == b.name && a.type == b.type && a.cache_flush == b.cache_flush && a.ttl == b.ttl && a.rdata == b.rdata;
}

// `is_whole`: reading did not end before the end.
template <typename Element>
void check_same(const std::vector<Element>& before, const std::vector<Element>& after, bool is_whole) {
  fuzz::claim(is_whole ? before.size() == after.size() : before.size() >= after.size(), "all of it is read again");
  for (std::size_t i = 0; i < after.size(); ++i)
    fuzz::claim(is_same(before[i], after[i]), "it is read the same");
}

void check_same(const Message& before, const Message& after, bool is_whole) {
  fuzz::claim(
      before.id == after.id && before.is_response == after.is_response && before.is_truncated == after.is_truncated,
      "the header is read the same");
  check_same(before.questions, after.questions, is_whole);
  check_same(before.answers, after.answers, is_whole);
  check_same(before.authorities, after.authorities, is_whole);
  check_same(before.additionals, after.additionals, is_whole);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Block block(data, size);
  std::optional<Message> message = read_message(block.bytes());
  if (!message)
    return 0;
  const std::size_t walked = check_message(*message, size);
  // no record is alone
  message->questions.insert(message->questions.begin(), {.name = std::string(1, '\0'), .type = kTypeAny});
  std::vector<std::uint8_t> written = write_message(*message);
  written.shrink_to_fit();
  const std::optional<Message> again = read_message(written);
  fuzz::claim(again.has_value(), "what is written is a message");
  check_same(*message, *again, walked + 1 <= allowance(written.size()));
  return 0;
}
