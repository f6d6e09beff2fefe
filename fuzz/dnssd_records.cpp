// SPDX-License-Identifier: MIT
// Record data that callers of the DNS-SD library and peers on the link hand to it.
//
// Claims: data that is accepted is written back in a form that is accepted again and stays the same from then on.

#include <avahi-core/rr.h>

#include "dnssd/names.h"
#include "dnssd/operations.h"
#include "fuzz.h"

using namespace dnssd;

namespace {

// Mostly the types that the daemon deals with, at times any.
std::uint16_t any_type(fuzz::Input& input) {
  constexpr std::uint16_t kTypes[] = {kDNSServiceType_A,   kDNSServiceType_AAAA, kDNSServiceType_PTR,   kDNSServiceType_TXT,
                                      kDNSServiceType_SRV, kDNSServiceType_NS,   kDNSServiceType_CNAME, kDNSServiceType_HINFO};
  const std::size_t which = input.byte();
  return which < std::size(kTypes) ? kTypes[which] : input.word();
}

// What comes back from a record; nothing when there is none.
std::string through_record(const Name& name, std::uint16_t type, const std::string& rdata, std::uint32_t ttl) {
  AvahiRecord* record = record_from_rdata(name_to_avahi(name), type, rdata, ttl);
  if (record == nullptr)
    return {};
  fuzz::claim(ttl == 0 || record->ttl == ttl, "a record has the time to live that was asked for");
  fuzz::claim(record->ttl != 0, "a record lives");
  std::string written = rdata_of(*record);
  avahi_record_unref(record);
  return written;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint16_t type = any_type(input);
  const std::uint32_t ttl = input.word();
  const std::optional<Name> name = parse_name(input.bytes());
  if (!name || name->labels.empty() || type == 0)
    return 0;
  const std::string written = through_record(*name, type, input.rest(), ttl);
  if (!written.empty()) {
    fuzz::claim(through_record(*name, type, written, ttl) == written, "what has been written is read and written the same");
  }
  return 0;
}
