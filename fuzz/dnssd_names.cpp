// SPDX-License-Identifier: MIT
// The DNS-SD library's names and service types, from texts and bytes that nobody has checked.
//
// Claims: what is accepted obeys the limits of DNS, and comes back unchanged from every form that it is written in.

#include "dnssd/base/names.h"

#include "fuzz.h"

using namespace dnssd;

namespace {

constexpr std::size_t kTextMax = 4 * kNameMax;

void check_name(const std::string& name) {
  fuzz::claim(name.size() <= kNameMax, "a name is short enough for the wire");
  fuzz::claim(mdns::is_name(name), "a name is one on the wire");
  const std::string text = name_to_text(name);
  fuzz::claim(text.size() <= kTextMax, "a name's text is bounded");
  fuzz::claim(parse_name(text) == name, "a name comes back from its text");
}

void check_type(const std::optional<ServiceType>& type) {
  if (!type)
    return;
  check_name(type->name);
  const std::optional<ServiceType> again = parse_service_type(type_text(type->name));
  fuzz::claim(again && again->name == type->name, "a type comes back from its text");
  for (const std::string& subtype : type->subtypes)
    check_name(subtype_name(*type, subtype));
}

// A name that conflicts for ever still finds an end: each next one is another and none is too long.
void check_renaming(const std::string& label) {
  std::string name = truncate_utf8(label, kLabelMax);
  for (int i = 0; i < 4; ++i) {
    const std::string next = next_service_name(name);
    fuzz::claim(next != name, "the next name is another");
    fuzz::claim(next.size() <= kLabelMax, "the next name is a label");
    name = next;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (const std::optional<std::string> name = parse_name(text))
    check_name(*name);
  check_type(parse_service_type(text));
  check_type(parse_browse_type(text));
  if (const std::optional<std::string> name = prepend_label(text, name_of({"_ipp", "_tcp", "local"})))
    check_name(*name);
  check_renaming(text);
  is_local_domain(text.c_str());
  return 0;
}
