// SPDX-License-Identifier: MIT
// The rules by section of RFC 6762. Each is checked as the datagram leaves, against what its host has published, asked
// and sent.
#include "simulation/wire_rules.h"

#include <algorithm>
#include <bit>

namespace simulation {
namespace {

constexpr std::size_t kDatagramMax = 1452;        // section 17, for both protocols on Ethernet
constexpr std::size_t kLargeDatagramMax = 8952;   // the same, for a single record
constexpr Time kSecondApart = kSecond;            // sections 5.2 and 6
constexpr Time kProbeApart = 250 * kMillisecond;  // sections 6 and 8.1
constexpr Time kSeriesOver = 600 * kMillisecond;  // between probes: then a new series has begun
constexpr Time kOnTheWay = 100 * kMillisecond;    // a queued datagram may have records that were true when it was
                                                  // written
constexpr std::size_t kManyDatagrams = 8;  // datagrams of the last second: with more the pace may part what belongs
                                           // together
constexpr int kAskedInAMinute = 50;
constexpr std::uint32_t kLegacyTtl = 10;  // section 6.7
constexpr std::uint16_t kResponseFlags = 0x8400, kTruncated = 0x0200;

struct Sent {  // what one record or question is judged by
  Port& port;
  const Batch& batch;
  const mdns::Datagram& datagram;
  const WireMessage& message;
  bool is_multicast;
  bool is_legacy;
};

void fail(const Sent& sent, const char* invariant, const std::string& subject) {
  fail(*sent.port.world, &sent.port, invariant, subject);
}

std::string subject_of(const WireRecord& record) {
  return simulation::text_of(record.name) + " " + std::to_string(record.type) + " " +
         simulation::text_of(record.type, record.rdata);
}

// Keeps when something was done over each protocol of the datagram; false when that was less than `apart` ago.
bool is_spaced(const Sent& sent, std::unordered_map<Hash, Time> (&times)[2], Hash hash, Time apart) {
  bool spaced = true;
  for (const mdns::Protocols protocol : mdns::kEachProtocol) {
    if ((sent.datagram.protocols & protocol) != 0) {
      const auto [place, is_new] = times[mdns::index_of(protocol)].emplace(hash, sent.port.world->now);
      spaced = spaced && (is_new || sent.port.world->now - place->second >= apart);
      place->second = sent.port.world->now;
    }
  }
  return spaced;
}

// --- Form and pace

void check_form(const Sent& sent) {
  const WireMessage& message = sent.message;
  if (message.fault != nullptr) {
    fail(sent, "a datagram is not well formed", message.fault);
  }
  const std::size_t entries = message.records.size() + message.questions.size();
  if (entries == 0 || message.size > (entries == 1 ? kLargeDatagramMax : kDatagramMax)) {
    fail(sent, "a datagram is empty or too large", std::to_string(message.size) + " bytes");
  }
  const std::uint16_t flags = message.is_response() ? kResponseFlags : message.flags & kTruncated;
  if (!sent.is_legacy && (message.flags != flags || message.id != 0)) {
    fail(sent, "a header has bits that it may not have", std::to_string(message.flags));
  }
  if (!sent.is_legacy && message.is_response() && !message.questions.empty()) {
    fail(sent, "a response holds a question", simulation::text_of(message.questions[0].name));
  }
}

bool is_over_present_protocols(const Sent& sent) {
  const mdns::Protocols protocols = sent.is_multicast ? sent.datagram.protocols : sent.datagram.to.protocol;
  return (protocols & ~sent.port.protocols) == 0 && (sent.is_multicast || sent.datagram.to.port != 0);
}

// --- Queries

bool is_proposed(const WireMessage& probe, Hash record) {
  return std::any_of(probe.records.begin(), probe.records.end(),
                     [&](const WireRecord& each) { return each.part == Part::authority && each.hash == record; });
}

// Section 8.1 and 8.2: the distance of probes, and all records of the name in each; none of a name that is only looked
// for.
void check_probe(const Sent& sent, const WireQuestion& question) {
  const auto found = sent.port.claimed.find(question.name_hash);
  if (found == sent.port.claimed.end() || found->second.publications == 0) {
    fail(sent, "a probe for a name that is not claimed", simulation::text_of(question.name));
    return;
  }
  if (found->second.yielding == found->second.publications && is_probe_for(sent.message, question)) {
    fail(sent, "a borrowed name is claimed", simulation::text_of(question.name));
  }
  if (question.type != mdns::kTypeAny) {
    fail(sent, "a probe for one type", simulation::text_of(question.name));
  }
  Claimed& claimed = found->second;
  const Time now = sent.port.world->now;
  if (!is_spaced(sent, sent.port.ledger.probed, question.name_hash, kProbeApart)) {
    fail(sent, "probes less than 250 ms apart", simulation::text_of(question.name));
  }
  const mdns::Protocols counted = sent.port.protocols & (~sent.port.protocols + 1);  // the first that the link has
  if ((sent.datagram.protocols & counted) != 0) {
    claimed.probes = claimed.is_announced || now - claimed.probed_at > kSeriesOver ? 1 : claimed.probes + 1;
    claimed.probed_at = now;
    claimed.is_announced = false;
    claimed.was_owned = false;
  }
  for (const auto& each : sent.port.publications) {
    const Publication& publication = each.second;
    const bool is_claimed = publication.name_hash == question.name_hash && is_owning(publication.claim);
    for (std::size_t at = 0; is_claimed && at < publication.hashes.size(); ++at) {
      if (!is_proposed(sent.message, publication.hashes[at])) {
        fail(sent, "a probe without one of the proposed records", simulation::text_of(question.name));
      }
    }
  }
}

void check_question(const Sent& sent, const WireQuestion& question) {
  if (question.klass != mdns::kClassIn) {
    fail(sent, "a question of another class", simulation::text_of(question.name));
  }
  const auto claimed = sent.port.claimed.find(question.name_hash);
  const bool is_look =
      question.type == mdns::kTypeAny && claimed != sent.port.claimed.end() && claimed->second.yielding > 0;
  if (is_look || is_probe_for(sent.message, question)) {
    check_probe(sent, question);
    return;
  }
  const auto& queriers = sent.port.medium->queriers;
  const auto found = queriers.find(question.set_hash);
  const bool is_asked =
      found != queriers.end() && std::any_of(found->second.begin(), found->second.end(),
                                             [&](const auto& querier) { return querier.first == &sent.port; });
  const auto stopped = sent.port.ledger.stopped.find(question.set_hash);
  if (!is_asked && (stopped == sent.port.ledger.stopped.end() || sent.port.world->now - stopped->second > kOnTheWay)) {
    fail(sent, "a question that nobody asked",
         simulation::text_of(question.name) + " " + std::to_string(question.type));
  }
  // Section 5.2: seven times in the first minute. Whatever begins a series anew stays far below this.
  Minute& minute = sent.port.ledger.asking[question.set_hash];
  minute = sent.port.world->now - minute.began > 60 * kSecond ? Minute{sent.port.world->now, 0} : minute;
  if (++minute.times > kAskedInAMinute && !sent.port.world->is_hostile) {
    fail(sent, "a question all the time", simulation::text_of(question.name) + " " + std::to_string(question.type));
  }
  if (!is_spaced(sent, sent.port.ledger.asked, question.set_hash, kSecondApart)) {
    fail(sent, "a question twice within a second",
         simulation::text_of(question.name) + " " + std::to_string(question.type));
  }
}

void check_known_answer(const Sent& sent, const WireRecord& record) {
  if (record.flush || record.part == Part::additional) {
    fail(sent, "a record of a query with the cache-flush bit, or as additional", subject_of(record));
  }
  const auto ttl = sent.port.medium->ttls.find(record.hash);
  if (record.part == Part::authority || sent.port.world->is_hostile) {
    return;
  }
  if (ttl == sent.port.medium->ttls.end() || record.ttl > ttl->second || 2 * record.ttl + 1 < ttl->second) {
    fail(sent, "a known answer that is none, or below half of its TTL",
         subject_of(record) + " " + std::to_string(record.ttl) + " s");
  }
  // Section 7.1: the TTL that is left.
  const auto received = sent.port.ledger.received.find(record.hash);
  const Time left = received == sent.port.ledger.received.end()
                        ? 0
                        : received->second.at + (Time{received->second.ttl} + 1) * kSecond - sent.port.world->now;
  if (!sent.port.holdings.contains(record.hash) && Time{record.ttl} * kSecond > left) {
    fail(sent, "a known answer with more than is left of its TTL",
         subject_of(record) + " " + std::to_string(record.ttl) + " s");
  }
}

// --- Responses

// Section 8.1: the name is ours, and silent while it is probed for.
void check_owned(const Sent& sent, const WireRecord& record) {
  const auto found = sent.port.claimed.find(record.name_hash);
  if (found == sent.port.claimed.end() || found->second.publications == 0) {
    return;
  }
  Claimed& claimed = found->second;
  const Time since_probe = sent.port.world->now - claimed.probed_at;
  const bool has_probed = claimed.probes >= 3 && since_probe >= kProbeApart;
  if (claimed.is_announced || claimed.was_owned || has_probed) {
    claimed.is_announced = true;
    return;
  }
  fail(sent, "a record under a name that has not been probed for three times",
       subject_of(record) + ", probes: " + std::to_string(claimed.probes));
}

void check_goodbye(const Sent& sent, const WireRecord& record) {
  const auto found = sent.port.holdings.find(record.hash);
  if (found == sent.port.holdings.end() || !found->second.owes_goodbye) {
    fail(sent, "a goodbye for what was not withdrawn", subject_of(record));
    return;
  }
  found->second.goodbye_at = sent.port.world->now;
  for (auto& times : sent.port.ledger.multicast) {
    times.erase(record.hash);
  }
}

// Section 6.1: what an NSEC record denies is really not there.
void check_denial(const Sent& sent, const WireRecord& record) {
  const Port& port = sent.port;
  const auto claimed = port.claimed.find(record.name_hash);
  if (claimed == port.claimed.end() || claimed->second.publications == claimed->second.yielding) {
    if (claimed == port.claimed.end() || port.world->now - claimed->second.changed_at > kOnTheWay) {
      fail(sent, "an NSEC record for a name that is not ours", simulation::text_of(record.name));
    }
    return;
  }
  const std::size_t next = record.name.size();
  if (folded(record.rdata.substr(0, next)) != folded(record.name) || record.rdata.size() < next + 3 ||
      record.rdata[next] != 0) {
    fail(sent, "an NSEC record of another form", subject_of(record));
    return;
  }
  const std::string bitmap = record.rdata.substr(next + 2);
  for (const std::uint16_t type : {mdns::kTypeA, mdns::kTypeTxt, mdns::kTypeAaaa, mdns::kTypeSrv, mdns::kTypeHinfo}) {
    const auto truths = port.medium->truth.find(hash_set(record.name_hash, type));
    const bool is_there =
        truths != port.medium->truth.end() &&
        std::any_of(truths->second.begin(), truths->second.end(), [&](const Truth& t) { return t.port == &port; });
    const bool is_listed =
        type / 8U < bitmap.size() && (static_cast<std::uint8_t>(bitmap[type / 8U]) & (0x80U >> type % 8U)) != 0;
    if (is_there && !is_listed && port.world->now - claimed->second.changed_at > kOnTheWay) {
      fail(sent, "an NSEC record denies what is there", simulation::text_of(record.name) + " " + std::to_string(type));
    }
  }
}

// Whether the record is published now, or was until a moment ago.
bool is_ours(const Sent& sent, const WireRecord& record) {
  const auto found = sent.port.holdings.find(record.hash);
  if (found == sent.port.holdings.end()) {
    return false;
  }
  const Holding& holding = found->second;
  const bool was_until_now = holding.gone_at != kNever && sent.port.world->now - holding.gone_at <= kOnTheWay;
  return holding.established > 0 || (was_until_now && holding.goodbye_at == kNever);
}

// Whether the cache-flush bit of what is sent leaves the record in caches, since it was sent within the last second
// itself.
bool is_spared(const Sent& sent, Hash record) {
  for (const mdns::Protocols protocol : mdns::kEachProtocol) {
    const auto& multicast = sent.port.ledger.multicast[mdns::index_of(protocol)];
    const auto last = multicast.find(record);
    const bool is_recent = last != multicast.end() && sent.port.world->now - last->second < kSecondApart;
    if ((sent.datagram.protocols & protocol) != 0 && !is_recent) {
      return false;
    }
  }
  return sent.is_multicast;
}

// Section 10.2: all records of a unique name and type, or none, where the cache-flush bit takes the others away.
void check_whole(const Sent& sent, const WireRecord& record) {
  const Port& port = sent.port;
  const auto claimed = port.claimed.find(record.name_hash);
  if (!record.flush || claimed == port.claimed.end() || port.world->now - claimed->second.changed_at <= kOnTheWay ||
      port.ledger.sent.size() > kManyDatagrams) {
    return;
  }
  const auto truths = port.medium->truth.find(record.set_hash);
  for (std::size_t at = 0; truths != port.medium->truth.end() && at < truths->second.size(); ++at) {
    const Truth& truth = truths->second[at];
    if (truth.port != &port || !truth.unique || truth.hash == record.hash || is_spared(sent, truth.hash)) {
      continue;
    }
    bool is_there = false;
    for (std::size_t each = 0; each < sent.batch.messages.size() && !is_there; ++each) {
      const std::vector<WireRecord>& records = sent.batch.messages[each].records;
      is_there = sent.batch.datagrams[each].protocols == sent.datagram.protocols &&
                 std::any_of(records.begin(), records.end(),
                             [&](const WireRecord& other) { return other.hash == truth.hash; });
    }
    if (!is_there) {
      fail(sent, "a part of a unique RRset",
           subject_of(record) + " without " + simulation::text_of(record.type, truth.rdata));
    }
  }
}

void check_answer(const Sent& sent, const WireRecord& record) {
  if (!is_ours(sent, record)) {
    fail(sent, "a record that is not published", subject_of(record));
    return;
  }
  const Holding& holding = sent.port.holdings[record.hash];
  const bool unique = holding.unique;
  if (record.flush != (unique && !sent.is_legacy)) {
    fail(sent, "the cache-flush bit", subject_of(record));
  }
  const std::uint32_t full = sent.port.medium->ttls[record.hash];
  if (record.ttl != (sent.is_legacy ? std::min(full, kLegacyTtl) : full)) {
    fail(sent, "another TTL than published", subject_of(record) + " " + std::to_string(record.ttl) + " s");
  }
  if (unique || holding.yielding) {
    check_owned(sent, record);
  }
  if (unique) {
    check_whole(sent, record);
  }
}

void check_response_record(const Sent& sent, const WireRecord& record) {
  if (record.part == Part::authority || record.klass != mdns::kClassIn) {
    fail(sent, "a response with authority records or another class", subject_of(record));
  }
  if (record.ttl == 0) {
    check_goodbye(sent, record);
    return;
  }
  if (record.type == mdns::kTypeNsec) {
    check_denial(sent, record);
    check_owned(sent, record);
  } else {
    check_answer(sent, record);
  }
  if (sent.is_multicast && !is_record_spaced(sent.port, sent.datagram.protocols, record)) {
    fail(sent, "a record twice within a second", subject_of(record));
  }
}

}  // namespace

void check_sent(Port& port, const Batch& batch) {
  for (std::size_t at = 0; at < batch.datagrams.size() && port.world->breach.empty(); ++at) {
    const mdns::Datagram& datagram = batch.datagrams[at];
    const bool is_multicast = datagram.protocols != mdns::kNoProtocol;
    const Sent sent{
        port, batch, datagram, batch.messages[at], is_multicast, !is_multicast && datagram.to.port != mdns::kPort};
    if (!is_over_present_protocols(sent)) {
      fail(sent, "sent over a protocol that the link does not have", std::to_string(datagram.protocols));
      continue;
    }
    check_form(sent);
    check_pace(port, static_cast<std::size_t>(is_multicast ? std::popcount(datagram.protocols) : 1));
    if (!sent.message.is_response()) {
      for (const WireQuestion& question : sent.message.questions) {
        check_question(sent, question);
      }
    }
    for (const WireRecord& record : sent.message.records) {
      if (sent.message.is_response()) {
        check_response_record(sent, record);
      } else {
        check_known_answer(sent, record);
      }
    }
  }
}

}  // namespace simulation
