// SPDX-License-Identifier: MIT
// Names in wire format, as PTR answers carry them.
//
// Claims: nothing is read past the data or written past the text's buffer, and what is turned into text is a whole
// name.

#include "fuzz.h"
#include "proxy/names.h"
#include "proxy/proxy.h"

namespace {

// A plain reading: the labels of the name that `data` begins with, or nothing when there is no whole one.
bool read_plainly(std::span<const std::uint8_t> data, std::string* text, std::size_t* used) {
  for (std::size_t at = 0; at < data.size();) {
    const std::size_t length = data[at];
    if (length == 0) {
      *used = at + 1;
      return true;
    }
    if (length > kLabelMax || at + 1 + length > data.size())
      return false;
    std::string label(reinterpret_cast<const char*>(&data[at + 1]), length);
    *text += label.c_str();  // a zero byte ends it
    *text += '.';
    at += 1 + length;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t room = 1 + input.word() % kNameSize;
  const std::string rest_of_input = input.rest();
  fuzz::Block wire(reinterpret_cast<const std::uint8_t*>(rest_of_input.data()), rest_of_input.size());
  fuzz::Block text(room);
  std::span<const std::uint8_t> rest = wire.bytes();
  const std::size_t written = wire_name_to_text(text.data(), room, rest);
  std::string expected;
  std::size_t used = 0;
  if (!read_plainly(wire.bytes(), &expected, &used)) {
    fuzz::claim(written == 0 && text.data()[0] == '\0', "a name that is not whole gives an empty text");
    return 0;
  }
  fuzz::claim(expected.substr(0, room - 1) == text.data(), "the text is the name's, cut to fit");
  fuzz::claim(written == std::strlen(text.data()), "the result is the text's length");
  fuzz::claim(rest.size() == wire.size() - used, "the reading goes on behind the name");
  return 0;
}
