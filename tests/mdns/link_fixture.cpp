// SPDX-License-Identifier: MIT
#include "mdns/link_fixture.h"

#include <algorithm>

namespace mdns {

bool operator==(const Record& a, const Record& b) {
  return a.name == b.name && a.type == b.type && a.klass == b.klass && a.cache_flush == b.cache_flush &&
         a.ttl == b.ttl && a.rdata == b.rdata;
}

void PrintTo(const Record& record, std::ostream* out) {
  *out << testing::PrintToString(record.name) << " type " << record.type << " ttl " << record.ttl
       << (record.cache_flush ? " flush " : " ") << testing::PrintToString(record.rdata);
}

void PrintTo(const Question& question, std::ostream* out) {
  *out << testing::PrintToString(question.name) << " type " << question.type
       << (question.unicast_response ? " QU" : " QM");
}

}  // namespace mdns

namespace mdns::test {
namespace {

constexpr unsigned kTopBit = 0x8000;
constexpr unsigned kTruncatedBit = 0x0200;

Record record_of(std::string_view labels, std::uint16_t type, std::string rdata) {
  Record record{.name = name(labels), .type = type, .rdata = std::move(rdata)};
  record.ttl = usual_ttl(record.name, type);
  return record;
}

std::string wire_of(const std::vector<Question>& questions) {
  std::string wire;
  for (const Question& question : questions) {
    wire +=
        question.name + number16(question.type) + number16(question.klass | (question.unicast_response ? kTopBit : 0));
  }
  return wire;
}

std::string wire_of(const std::vector<Record>& records) {
  std::string wire;
  for (const Record& one : records) {
    wire += record(one.name, one.type, one.rdata, one.klass | (one.cache_flush ? kTopBit : 0), one.ttl);
  }
  return wire;
}

std::vector<Sent> only(const std::vector<Sent>& all, const std::function<bool(const Sent&)>& condition) {
  std::vector<Sent> kept;
  std::ranges::copy_if(all, std::back_inserter(kept), condition);
  return kept;
}

bool is_to_group(const Sent& one, bool is_response) {
  return !one.is_reply() && one.message.is_response == is_response;
}

}  // namespace

Record Ptr(std::string_view labels, std::string_view target) { return record_of(labels, kTypePtr, name(target)); }
Record Srv(std::string_view labels, std::string_view target, unsigned port) {
  return record_of(labels, kTypeSrv, srv(port, target));
}
Record Txt(std::string_view labels, std::string_view text) { return record_of(labels, kTypeTxt, label(text)); }
Record A(std::string_view labels, unsigned last_byte) {
  return record_of(labels, kTypeA, std::string("\x0a\0\0", 3) + static_cast<char>(last_byte));
}
Record Aaaa(std::string_view labels, unsigned last_byte) {
  return record_of(labels, kTypeAaaa,
                   std::string("\xfe\x80", 2) + std::string(13, '\0') + static_cast<char>(last_byte));
}

Record Nsec(std::string_view labels, const std::vector<std::uint16_t>& types) {
  Record record = record_of(labels, kTypeNsec, denial_rdata(name(labels), types));
  record.ttl = kHostTtl;
  return Unique(record);
}

Record Unique(Record record) {
  record.cache_flush = true;
  return record;
}

Record Ttl(Record record, std::uint32_t seconds) {
  record.ttl = seconds;
  return record;
}

Record Goodbye(Record record) { return Ttl(std::move(record), 0); }

Question Qm(std::string_view labels, std::uint16_t type) { return {.name = name(labels), .type = type}; }

Question Qu(std::string_view labels, std::uint16_t type) {
  return {.name = name(labels), .type = type, .unicast_response = true};
}

Endpoint Host(unsigned last_byte, std::uint16_t port) {
  return {.protocol = kIpv4, .port = port, .address = {10, 0, 0, static_cast<std::uint8_t>(last_byte)}};
}

Endpoint Host6(unsigned last_byte, std::uint16_t port) {
  Endpoint host{.protocol = kIpv6, .port = port, .address = {0xfe, 0x80}};
  host.address.back() = static_cast<std::uint8_t>(last_byte);
  return host;
}

Query Probe(const std::vector<Record>& proposed, Endpoint from) {
  Question question{.name = proposed.front().name, .type = kTypeAny};
  return {.questions = {question}, .proposed = proposed, .from = from};
}

void PrintTo(const Sent& sent, std::ostream* out) {
  *out << "at " << sent.at
       << (sent.is_reply()            ? " a reply"
           : sent.message.is_response ? " a response"
                                      : " a query")
       << " over " << sent.protocols << testing::PrintToString(sent.message.questions)
       << testing::PrintToString(records_of(sent.message));
}

void PrintTo(const Reported& reported, std::ostream* out) {
  *out << "at " << reported.at << " event " << static_cast<int>(reported.event.kind) << " of " << reported.event.id
       << " type " << reported.event.type << ' ' << testing::PrintToString(reported.event.rdata);
}

std::vector<Record> records_of(const Message& message) {
  std::vector<Record> records = message.answers;
  records.insert(records.end(), message.authorities.begin(), message.authorities.end());
  records.insert(records.end(), message.additionals.begin(), message.additionals.end());
  return records;
}

void LinkTest::GivenLink(Protocols protocols, std::uint64_t seed) {
  link = link_new(seed, protocols);
  now = 1'000'000_s;
  Mark();
}

void LinkTest::GivenPublished(Claim claim, const std::vector<Record>& records) {
  const PublicationId id = Publish(claim, records);
  After(12_s);
  ASSERT_EQ(EstablishedAt(id).size(), 1u);
  Mark();
}

QueryId LinkTest::GivenAsked(std::string_view labels, std::uint16_t type, const std::vector<Record>& answers) {
  const QueryId id = Start(labels, type);
  After(150_ms);
  if (!answers.empty()) {
    ReceivesAnswers(answers);
  }
  Mark();
  return id;
}

PublicationId LinkTest::Publish(Claim claim, const std::vector<Record>& records) {
  std::vector<RecordData> data;
  for (const Record& record : records) {
    data.push_back({record.type, record.ttl, record.rdata});
  }
  const PublicationId id = publish(*link, now, records.front().name, data, claim, 7);
  Settle();
  return id;
}

bool LinkTest::Update(PublicationId id, const Record& record) {
  const bool is_done = publication_update(*link, now, id, {record.type, record.ttl, record.rdata});
  Settle();
  return is_done;
}

void LinkTest::Withdraw(PublicationId id) {
  publication_withdraw(*link, now, id);
  Settle();
}

QueryId LinkTest::Start(std::string_view labels, std::uint16_t type) {
  const QueryId id = query_start(*link, now, name(labels), type, 8);
  Settle();
  return id;
}

void LinkTest::Stop(QueryId id) {
  query_stop(*link, now, id);
  Settle();
}

void LinkTest::ReceivesAnswers(const std::vector<Record>& answers) { ReceivesResponse({.answers = answers}); }

void LinkTest::ReceivesResponse(const Response& response) {
  const Counts counts{static_cast<unsigned>(response.questions.size()), static_cast<unsigned>(response.answers.size()),
                      static_cast<unsigned>(response.authorities.size()),
                      static_cast<unsigned>(response.additionals.size())};
  Receives(header(response.flags, counts, response.id) + wire_of(response.questions) + wire_of(response.answers) +
               wire_of(response.authorities) + wire_of(response.additionals),
           response.from, response.to_group, response.is_local);
}

void LinkTest::Asks(const Question& question) { Asks(Query{.questions = {question}}); }

void LinkTest::Asks(const Query& query) {
  const Counts counts{static_cast<unsigned>(query.questions.size()), static_cast<unsigned>(query.known.size()),
                      static_cast<unsigned>(query.proposed.size()), 0};
  Receives(header(query.is_truncated ? kTruncatedBit : 0, counts, query.id) + wire_of(query.questions) +
               wire_of(query.known) + wire_of(query.proposed),
           query.from, query.to_group, query.is_local);
}

void LinkTest::Receives(const std::string& datagram, const Endpoint& from, bool to_group, bool is_local) {
  link_receive(*link, now, {.source = from, .to_group = to_group, .is_local = is_local, .bytes = bytes(datagram)});
  Settle();
}

void LinkTest::LoopBack(const Datagram& datagram) {
  for (const Protocols protocol : kEachProtocol) {
    if (datagram.protocols & protocol) {
      const Endpoint own = protocol == kIpv4 ? Host(1) : Host6(1);
      link_receive(*link, now, {.source = own, .to_group = true, .is_local = true, .bytes = datagram.bytes});
    }
  }
}

void LinkTest::Settle() {
  link_advance(*link, now);
  for (const Datagram& datagram : link_take_datagrams(*link)) {
    const std::optional<Message> message = read_message(datagram.bytes);
    ASSERT_TRUE(message.has_value());
    const unsigned flags = unsigned{datagram.bytes[2]} << 8 | datagram.bytes[3];
    sent.push_back({now - mark_, datagram.protocols, datagram.to, datagram.bytes, flags, *message});
    LoopBack(datagram);
  }
  for (const Event& event : link_take_events(*link)) {
    reported.push_back({now - mark_, event});
  }
}

void LinkTest::After(Time duration) {
  const Time end = now + duration;
  int rounds_without_progress = 0;
  for (Settle(); link_deadline(*link) <= end; Settle()) {
    rounds_without_progress = link_deadline(*link) > now ? 0 : rounds_without_progress + 1;
    ASSERT_LT(rounds_without_progress, 100) << "the deadline stays in the past";
    now = std::max(now, link_deadline(*link));
  }
  now = end;
}

bool LinkTest::AfterUntil(Time at_most, const std::function<bool()>& condition) {
  for (const Time end = now + at_most; now < end;) {
    if (condition()) {
      return true;
    }
    After(std::clamp(link_deadline(*link) - now, Time{1}, end - now));
  }
  return condition();
}

void LinkTest::Mark() {
  mark_ = now;
  sent.clear();
  reported.clear();
}

std::vector<Time> LinkTest::AskedAt(std::string_view labels, std::uint16_t type) const {
  std::vector<Time> times;
  for (const Sent& one : Queries()) {
    for (const Question& question : one.message.questions) {
      if (question.type == type && question.name == name(labels)) {
        times.push_back(one.at);
      }
    }
  }
  return times;
}

std::vector<Time> LinkTest::SentAt(const Record& record) const {
  std::vector<Time> times;
  for (const Sent& one : Responses()) {
    if (std::ranges::count(records_of(one.message), record) > 0) {
      times.push_back(one.at);
    }
  }
  return times;
}

std::vector<Record> LinkTest::SentRecords() const {
  std::vector<Record> records;
  for (const Sent& one : Responses()) {
    std::ranges::copy(records_of(one.message), std::back_inserter(records));
  }
  return records;
}

std::vector<Sent> LinkTest::Queries() const {
  return only(sent, [](const Sent& one) { return is_to_group(one, false); });
}

std::vector<Sent> LinkTest::Responses() const {
  return only(sent, [](const Sent& one) { return is_to_group(one, true); });
}

std::vector<Sent> LinkTest::Replies() const {
  return only(sent, [](const Sent& one) { return one.is_reply(); });
}

std::vector<Time> LinkTest::ReportedAt(Event::Kind kind, const Record& record) const {
  std::vector<Time> times;
  for (const Reported& one : reported) {
    if (one.event.kind == kind && one.event.type == record.type && one.event.rdata == record.rdata) {
      times.push_back(one.at);
    }
  }
  return times;
}

std::vector<Time> LinkTest::ReportedAt(Event::Kind kind, PublicationId id) const {
  std::vector<Time> times;
  for (const Reported& one : reported) {
    if (one.event.kind == kind && one.event.id == id) {
      times.push_back(one.at);
    }
  }
  return times;
}

}  // namespace mdns::test
