// SPDX-License-Identifier: MIT
// Individually registered records. Each is a publication under a key of name, type and rdata, so that the same record
// registered twice on one interface is one publication with two holders (the first one's TTL and uniqueness hold).
#include <avahi-core/rr.h>

#include <array>

#include "dnssd/engine.h"
#include "dnssd/operations.h"
#include "dnssd/publications.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// RFC 6762 section 17 holds a message to 9000 bytes; more rdata than this could never be sent.
constexpr std::size_t kRdataMax = 8192;
constexpr std::uint32_t kHostTtl = 120;  // RFC 6762 section 10
constexpr std::uint32_t kOtherTtl = 75 * 60;
constexpr std::size_t kSrvTargetAt = 6;  // RFC 2782

std::span<const std::uint8_t> bytes_of(const std::string& data) {
  return {reinterpret_cast<const std::uint8_t*>(data.data()), data.size()};
}

bool is_two_strings(std::span<const std::uint8_t> data) {
  return !data.empty() && data.size() > 1u + data[0] && data.size() == 2u + data[0] + data[1u + data[0]];
}

// Whether `rdata` is well-formed for `rrtype`; types that Avahi takes as plain bytes are.
bool is_rdata(std::uint16_t rrtype, const std::string& rdata) {
  const std::span<const std::uint8_t> data = bytes_of(rdata);
  if (data.empty() || data.size() > kRdataMax) {
    return false;
  }
  switch (rrtype) {
    case kDNSServiceType_A:
      return data.size() == sizeof(AvahiIPv4Address);
    case kDNSServiceType_AAAA:
      return data.size() == sizeof(AvahiIPv6Address);
    case kDNSServiceType_PTR:
    case kDNSServiceType_CNAME:
    case kDNSServiceType_NS:
      return is_wire_name(data);
    case kDNSServiceType_SRV:
      return data.size() > kSrvTargetAt && is_wire_name(data.subspan(kSrvTargetAt));
    case kDNSServiceType_TXT:
      return is_txt_data(data);
    case kDNSServiceType_HINFO:
      return is_two_strings(data);
    default:
      return true;
  }
}

bool is_reverse_name(const std::string& name) {
  const std::string folded = fold_case(name);
  return folded.ends_with(".in-addr.arpa") || folded.ends_with(".ip6.arpa");
}

std::string key_of(const std::string& name, std::uint16_t rrtype, const std::string& rdata) {
  return fold_case(name) + '\n' + std::to_string(rrtype) + '\n' + rdata;
}

void queue_record_reply(Operation& operation, DNSServiceErrorType error) {
  Reply reply;
  reply.error = error;
  reply_queue(operation, std::move(reply));
}

// A unique record's new data needs no probes once the old data's have succeeded.
Claim claim_of_update(const Record& record, const Publication& old) {
  if (!record.unique) {
    return Claim::shared;
  }
  return old.stage == Stage::established ? Claim::proven : Claim::unique;
}

void tell_established(Operation& operation, Record& record) {
  if (record.told) {
    return;
  }
  record.told = true;
  queue_record_reply(operation, kDNSServiceErr_NoError);
}

}  // namespace

std::uint32_t usual_ttl(const std::string& name, std::uint16_t rrtype) {
  switch (rrtype) {
    case kDNSServiceType_A:
    case kDNSServiceType_AAAA:
    case kDNSServiceType_SRV:
    case kDNSServiceType_HINFO:
      return kHostTtl;
    case kDNSServiceType_PTR:
      return is_reverse_name(name) ? kHostTtl : kOtherTtl;
    default:
      return kOtherTtl;
  }
}

AvahiRecord* record_from_rdata(const std::string& name, std::uint16_t rrtype, const std::string& rdata, std::uint32_t ttl) {
  if (!is_rdata(rrtype, rdata)) {
    return nullptr;
  }
  AvahiRecord* record = avahi_record_new_full(name.c_str(), AVAHI_DNS_CLASS_IN, rrtype, ttl != 0 ? ttl : usual_ttl(name, rrtype));
  if (record == nullptr) {
    return nullptr;
  }
  if (avahi_rdata_parse(record, rdata.data(), rdata.size()) == 0 && avahi_record_is_valid(record)) {
    return record;
  }
  avahi_record_unref(record);
  return nullptr;
}

std::string rdata_of(AvahiRecord& record) {
  std::array<char, kRdataMax> room;
  const std::size_t size = avahi_rdata_serialize(&record, room.data(), room.size());
  if (size == static_cast<std::size_t>(-1)) {
    return {};
  }
  std::string rdata(room.data(), size);
  // Avahi forgets empty strings; a TXT record always holds one (RFC 6763 section 6.1).
  return rdata.empty() && record.key->type == AVAHI_DNS_TYPE_TXT ? std::string(1, '\0') : rdata;
}

Publication* record_hold(Operation& operation, const std::string& name, std::uint16_t rrtype, const std::string& rdata,
                         std::uint32_t ttl, Claim claim) {
  const std::string key = key_of(name, rrtype, rdata);
  Publication* publication = publication_find_shared(*operation.server, key);
  if (publication != nullptr) {
    publication_join(*publication, operation.serial);
    return publication;
  }
  AvahiRecord* record = record_from_rdata(name, rrtype, rdata, ttl);
  if (record == nullptr) {
    return nullptr;
  }
  constexpr auto kShared = static_cast<AvahiPublishFlags>(0);
  constexpr auto kUnique = static_cast<AvahiPublishFlags>(AVAHI_PUBLISH_UNIQUE | AVAHI_PUBLISH_ALLOW_MULTIPLE);
  publication = publication_new(*operation.server, operation.serial, key, {{record, claim == Claim::shared ? kShared : kUnique}});
  publication->has_name = claim == Claim::proven;
  publication_start(*publication);
  return publication;
}

DNSServiceErrorType record_start(Operation& operation, const std::string& rdata, std::uint32_t ttl) {
  Record& record = part_of<Record>(operation);
  const Claim claim = record.unique ? Claim::unique : Claim::shared;
  record.publication = record_hold(operation, record.name, record.rrtype, rdata, ttl, claim);
  if (record.publication == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  if (record.publication->stage == Stage::established) {
    tell_established(operation, record);
  }
  return kDNSServiceErr_NoError;
}

DNSServiceErrorType record_update(Operation& operation, const std::string& rdata, std::uint32_t ttl) {
  Record& record = part_of<Record>(operation);
  if (record.publication == nullptr) {
    return kDNSServiceErr_BadState;
  }
  if (record.publication->key == key_of(record.name, record.rrtype, rdata)) {
    return kDNSServiceErr_NoError;
  }
  Publication& old = *record.publication;
  Publication* updated = record_hold(operation, record.name, record.rrtype, rdata, ttl, claim_of_update(record, old));
  if (updated == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  record.publication = updated;
  if (old.stage == Stage::established) {
    publication_replace(old, *updated, operation.serial);
  } else {
    publication_release(old, operation.serial);
  }
  if (updated->stage == Stage::established) {
    tell_established(operation, record);
  }
  return kDNSServiceErr_NoError;
}

void record_changed(Operation& operation, Publication& publication) {
  Record& record = part_of<Record>(operation);
  if (record.publication != &publication) {
    return;
  }
  if (publication.stage == Stage::established) {
    tell_established(operation, record);
    return;
  }
  const bool conflicts = publication.reported == AVAHI_ENTRY_GROUP_COLLISION;
  record.publication = nullptr;
  publication_release(publication, operation.serial);
  queue_record_reply(operation, conflicts ? kDNSServiceErr_NameConflict : kDNSServiceErr_Unknown);
}

void record_stop(Operation& operation, Record& record) {
  if (record.publication != nullptr) {
    publication_release(*record.publication, operation.serial);
  }
  record.publication = nullptr;
}

}  // namespace dnssd
