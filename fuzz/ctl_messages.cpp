// SPDX-License-Identifier: MIT
// Any bytes as the answer to a question of mdnsproxyctl.
//
// Claims: no label and no name is longer than a message can say, and what is asked for can be read back.

#include "fuzz.h"
#include "mdnsproxyctl/dns_message.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Block message(data, size);
  const auto records = decode_response(message.bytes());
  if (!records) {
    return 0;
  }
  fuzz::claim(size >= 12, "a message has a header");
  for (const DnsRecord& each : *records) {
    for (const DnsName* name : {&each.name, &each.target}) {
      fuzz::claim(name->size() <= 129, "a name has an end");
      for (const std::string& label : *name) {
        fuzz::claim(!label.empty() && label.size() <= 63, "a label has between 1 and 63 bytes");
      }
      fuzz::claim(same_name(*name, *name), "a name is the same as itself");
    }
  }
  return 0;
}
