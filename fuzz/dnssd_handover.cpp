// SPDX-License-Identifier: MIT
// The file that one process leaves to the next, whatever has become of it. Its hash would keep every other byte from
// being read, so the input has its own put behind it.
//
// Claims: what is read can be written and read again, and holds only records that can be published.

#include "dnssd/operations/handover_file.h"

#include <functional>

#include "dnssd/base/publishable.h"
#include "fuzz.h"
#include "mdns/wire/name.h"

using namespace dnssd;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::uint64_t hash = std::hash<std::string_view>()(bytes);
  bytes.append(reinterpret_cast<const char*>(&hash), sizeof hash);
  const std::optional<Handover> handover = handover_from_bytes(bytes);
  if (!handover) {
    return 0;
  }
  fuzz::claim(handover_to_bytes(*handover) == bytes, "a file comes back from what was read");
  for (const HandedInterface& interface : handover->interfaces) {
    for (const mdns::Published& record : interface.records) {
      fuzz::claim(mdns::is_name(record.name), "a name is one on the wire");
      fuzz::claim(is_publishable(record.data.type, record.data.rdata), "data can be published");
      fuzz::claim(record.claim != mdns::Claim::exclusive, "nothing is exclusive");
    }
  }
  return 0;
}
