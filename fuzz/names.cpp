// SPDX-License-Identifier: MIT
// Names in presentation format: counting, splitting, unescaping and cutting of labels.
//
// Claims: every operation stays within its source and its destination, yields what a plain reading of its rules yields,
// and the process would end for a text that is too long and for nothing else.

#include "proxy/names.h"

#include "fuzz.h"
#include "proxy/proxy.h"
#include "way_out.h"

namespace {

constexpr int kTooLongStatus = 600;

void split(const std::string& name, std::size_t room, int dots) {
  fuzz::Text source(name);
  fuzz::Block destination(room);
  const char* cursor = source.data();
  const char* const end = source.data() + name.size();
  const int result = copy_next_label(destination.data(), destination.data() + room, &cursor, dots);
  fuzz::claim(result == (room == 0 ? -1 : 0), "only a lack of room is an error");
  fuzz::claim(cursor >= source.data() && cursor <= end, "the cursor stays in the text");
  if (result == 0) {
    const std::size_t copied = std::strlen(destination.data());
    fuzz::claim(copied < room, "the copy ends in its room");
    fuzz::claim(name.compare(0, copied, destination.data()) == 0, "the copy is the text's beginning");
  }
}

void count(const std::string& name) {
  fuzz::Text source(name);
  const int labels = count_labels(source.data());
  fuzz::claim(labels >= 0 && labels <= static_cast<int>(name.size() / 2 + 1), "labels have dots between them");
}

void cut(const std::string& name) {
  fuzz::Text source(name);
  fuzz::claim(terminate_at_first_label(source.data()) == source.data(), "the name itself is the result");
  fuzz::claim(name.compare(0, std::strlen(source.data()), source.data()) == 0, "what is left is the name's beginning");
}

void unescape(const std::string& label) {
  fuzz::Text source(label);
  fuzz::Text destination(std::string(label.size(), 'x'));
  char* end = nullptr;
  const int status =
      fuzz::status_of([&] { end = ConvertDomainNameToCString_UnEnsacpe(source.data(), destination.data()); });
  if (label.size() > kNameSize) {
    fuzz::claim(status == kTooLongStatus, "a text that is too long ends the process");
    return;
  }
  fuzz::claim(status == -1, "no other text ends it");
  fuzz::claim(end >= destination.data() && end <= destination.data() + label.size(), "the copy ends in its room");
  fuzz::claim(*end == '\0', "the result is the terminating zero");
}

void copy(const std::string& text) {
  fuzz::Text source(text);
  char destination[kSubtypeSize];
  const bool whole = copy_text(destination, source.data());
  fuzz::claim(whole == (text.size() < sizeof destination), "it says whether it has cut the text");
  fuzz::claim(text.substr(0, sizeof destination - 1) == destination, "the copy is the text's beginning");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t room = input.word() % (kNameSize + 1);
  const int dots = input.byte() % 6;
  const std::string name = input.rest().c_str();
  split(name, room, dots);
  count(name);
  cut(name);
  unescape(name);
  copy(name);
  return 0;
}
