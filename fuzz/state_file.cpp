// SPDX-License-Identifier: MIT
// Any bytes as a state file, and what it says as it is shown to a person.
//
// Claims: what is read stays in its bounds, and nothing that is shown moves a cursor or ends a line.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "fuzz.h"
#include "mdnsproxyctl/state_reader.h"
#include "mdnsproxyctl/text.h"

namespace {

void look_at_text(const std::string& text) {
  const std::string safe = shown(text);
  const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
  fuzz::claim(std::ranges::none_of(safe, is_control), "no control character is shown");
  fuzz::claim(safe.find("\xe2\x80\xae") == std::string::npos, "no mark of direction is shown");
  fuzz::claim(display_width(safe) <= 4 * text.size(), "a byte takes four columns at most");
  fuzz::claim(in_quotes(text).size() >= 2, "a text in quotes has both");
}

void look_at(const StateView& view) {
  for (const InstanceView& each : view.instances) {
    fuzz::claim(each.rule < view.rules.size(), "an instance's rule is there");
    fuzz::claim(each.state >= StateOfInstance::forwarded && each.state <= StateOfInstance::refused,
                "a state is one of three");
    fuzz::claim(each.reason <= StateReason::conflict, "a reason is a known one");
    fuzz::claim(each.name.size() <= kStateNameSize && each.host.size() <= kStateHostSize, "a text ends with its field");
    look_at_text(each.name);
    look_at_text(each.host);
  }
  for (const EventView& each : view.events) {
    fuzz::claim(each.rule < view.rules.size(), "an event's rule is there");
    look_at_text(each.name);
  }
  for (const LinkView& each : view.links) {
    fuzz::claim(each.index != 0 && each.siblings.size() <= kStateSiblings,
                "a link has an index, and some siblings at most");
  }
  for (const RuleView& each : view.rules) {
    look_at_text(each.type);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int file = memfd_create("state", MFD_CLOEXEC);
  fuzz::claim(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size),
              "memory for the file");
  const StateReading reading = read_state(file);
  fuzz::claim((reading.outcome == StateOutcome::ok) == reading.message.empty(), "what is not ok is explained");
  if (reading.outcome == StateOutcome::ok) {
    look_at(reading.view);
  }
  return 0;
}
