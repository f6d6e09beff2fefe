// SPDX-License-Identifier: MIT
// Individually registered records: a publication each.
#include "dnssd/engine.h"
#include "dnssd/operations.h"

namespace dnssd {
namespace {

// RFC 6762 section 17 holds a message to 9000 bytes; more rdata than this could never be sent.
constexpr std::size_t kRdataMax = 8192;

void queue_record_reply(Operation& operation, DNSServiceErrorType error) {
  Reply reply;
  reply.error = error;
  reply_queue(operation, std::move(reply));
}

}  // namespace

bool is_publishable(std::uint16_t rrtype, const std::string& rdata) {
  return !rdata.empty() && rdata.size() <= kRdataMax && mdns::is_rdata(rrtype, rdata);
}

DNSServiceErrorType record_start(Operation& operation, const std::string& name, const std::string& rdata, std::uint32_t ttl) {
  Record& record = part_of<Record>(operation);
  if (!is_publishable(record.rrtype, rdata)) {
    return kDNSServiceErr_BadParam;
  }
  const mdns::Claim claim = record.is_unique ? mdns::Claim::unique : mdns::Claim::shared;
  const mdns::RecordData data{record.rrtype, ttl, rdata};
  record.publication = mdns::publish(link_of(operation), monotonic_now(), name, {&data, 1}, claim, operation.handle);
  return kDNSServiceErr_NoError;
}

void operation_event(Operation& operation, Record& record, const mdns::Event& event) {
  if (record.publication == 0 || event.id != record.publication) {
    return;
  }
  if (event.kind == mdns::Event::Kind::conflict) {
    record.publication = 0;
    queue_record_reply(operation, kDNSServiceErr_NameConflict);
  } else if (!record.is_reported) {
    record.is_reported = true;
    queue_record_reply(operation, kDNSServiceErr_NoError);
  }
}

DNSServiceErrorType record_update(Operation& operation, const std::string& rdata, std::uint32_t ttl) {
  const Record& record = part_of<Record>(operation);
  if (record.publication == 0) {
    return kDNSServiceErr_BadState;
  }
  if (!is_publishable(record.rrtype, rdata)) {
    return kDNSServiceErr_BadParam;
  }
  const mdns::RecordData data{record.rrtype, ttl, rdata};
  return mdns::publication_update(link_of(operation), monotonic_now(), record.publication, data) ? kDNSServiceErr_NoError
                                                                                                 : kDNSServiceErr_NameConflict;
}

}  // namespace dnssd
