// SPDX-License-Identifier: MIT
#include "mdns/wire/record.h"

#include <algorithm>

#include "mdns/wire/name.h"

namespace mdns {
namespace {

constexpr std::size_t kSoaNumbers = 20;          // RFC 1035 section 3.3.13
constexpr std::size_t kNsecWindowBytesMax = 32;  // RFC 4034 section 4.1.2, as the next
constexpr unsigned kNsecWindowTypes = 256;

constexpr RdataForm kForms[] = {
    {kTypeNs, 0, 1},  {kTypeCname, 0, 1}, {kTypePtr, 0, 1}, {kTypeDname, 0, 1}, {kTypeNsec, 0, 1},
    {kTypeMx, 2, 1},  {kTypeAfsdb, 2, 1}, {kTypeRt, 2, 1},  {kTypeKx, 2, 1},    {kTypeSrv, 6, 1},
    {kTypeSoa, 0, 2}, {kTypeRp, 0, 2},    {kTypePx, 2, 2},
};

// Where the last of the names in `rdata` ends; 0 when one of them is not whole. For forms with names only.
std::size_t names_end(RdataForm form, std::string_view rdata) {
  std::size_t end = form.head;
  for (unsigned i = 0; i < form.names; ++i) {
    const std::size_t size = end < rdata.size() ? name_size(rdata.substr(end)) : 0;
    if (size == 0) {
      return 0;
    }
    end += size;
  }
  return end;
}

// The number of character-strings (RFC 1035 section 3.3) that `text` consists of; 0 when it is malformed.
std::size_t count_strings(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t at = 0; at < text.size(); ++count) {
    at += 1 + std::size_t{static_cast<unsigned char>(text[at])};
    if (at > text.size()) {
      return 0;
    }
  }
  return count;
}

// The type bit maps of an NSEC record: one window or more, in ascending order, each with 1 to 32 bytes (RFC 4034
// section 4.1.2).
bool is_type_map(std::string_view map) {
  int last_window = -1;
  while (map.size() >= 2) {
    const int window = static_cast<unsigned char>(map[0]);
    const std::size_t size = static_cast<unsigned char>(map[1]);
    if (window <= last_window || size == 0 || size > kNsecWindowBytesMax || size > map.size() - 2) {
      return false;
    }
    last_window = window;
    map.remove_prefix(2 + size);
  }
  return map.empty() && last_window >= 0;
}

}  // namespace

RdataForm rdata_form(std::uint16_t type) {
  const auto* const found = std::ranges::find(kForms, type, &RdataForm::type);
  return found == std::end(kForms) ? RdataForm{} : *found;
}

bool is_rdata(std::uint16_t type, std::string_view rdata) {
  const RdataForm form = rdata_form(type);
  const std::size_t end = names_end(form, rdata);
  if (form.names != 0 && end == 0) {
    return false;
  }
  switch (type) {
    case kTypeA:
      return rdata.size() == 4;
    case kTypeAaaa:
      return rdata.size() == 16;
    case kTypeHinfo:
      return count_strings(rdata) == 2;
    case kTypeTxt:
      return count_strings(rdata) != 0;
    case kTypeSoa:
      return rdata.size() - end == kSoaNumbers;
    case kTypeNsec:
      return is_type_map(rdata.substr(end));
    default:
      return form.names == 0 || rdata.size() == end;
  }
}

bool same_rdata(std::uint16_t type, std::string_view a, std::string_view b) {
  if (a.size() != b.size()) {
    return false;
  }
  if (a == b) {
    return true;
  }
  const RdataForm form = rdata_form(type);
  const std::size_t head = form.head;
  const std::size_t end = names_end(form, a);
  return end != 0 && a.substr(0, head) == b.substr(0, head) && a.substr(end) == b.substr(end) &&
         same_folded(a.substr(head, end - head), b.substr(head, end - head));
}

int compare_records(std::uint16_t type_a, std::string_view rdata_a, std::uint16_t type_b, std::string_view rdata_b) {
  return type_a != type_b ? int{type_a} - int{type_b} : rdata_a.compare(rdata_b);
}

std::uint32_t usual_ttl(std::string_view name, std::uint16_t type) {
  constexpr std::uint16_t kOfHosts[] = {kTypeA, kTypeAaaa, kTypeHinfo, kTypeSrv, kTypeMx, kTypeAfsdb, kTypeRt, kTypeKx};
  const bool is_of_host =
      std::ranges::find(kOfHosts, type) != std::end(kOfHosts) || (type == kTypePtr && is_reverse_name(name));
  return is_of_host ? kHostTtl : kOtherTtl;
}

bool denial_lists(std::string_view rdata, std::uint16_t type) {
  if (!is_rdata(kTypeNsec, rdata)) {
    return true;
  }
  const std::size_t byte = 2 + type % kNsecWindowTypes / 8;
  for (std::string_view map = rdata.substr(name_size(rdata)); !map.empty();) {
    const std::size_t end = 2 + std::size_t{static_cast<unsigned char>(map[1])};
    if (static_cast<unsigned char>(map[0]) == type / kNsecWindowTypes) {
      return byte < end && (static_cast<unsigned char>(map[byte]) & 0x80u >> type % 8) != 0;
    }
    map.remove_prefix(end);
  }
  return false;
}

std::string denial_rdata(std::string_view name, std::span<const std::uint16_t> types) {
  std::string bits(1, '\0');
  for (const std::uint16_t type : types) {
    bits.resize(std::max<std::size_t>(bits.size(), type / 8 + 1u));
    bits[type / 8] = static_cast<char>(static_cast<unsigned char>(bits[type / 8]) | 0x80u >> type % 8);
  }
  return std::string(name) + '\0' + static_cast<char>(bits.size()) + bits;
}

std::string_view target_of(std::uint16_t type, std::string_view rdata) {
  const bool has_target = type == kTypePtr || type == kTypeSrv;
  return has_target && is_rdata(type, rdata) ? rdata.substr(rdata_form(type).head) : std::string_view();
}

}  // namespace mdns
