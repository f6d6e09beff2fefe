// SPDX-License-Identifier: MIT
// One engine link in virtual time: calls to publish, ask and receive, and the datagrams and events that follow, with
// their times.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string_view>
#include <vector>

#include "mdns/link_counts.h"
#include "mdns/mdns.h"
#include "mdns/wire/reader.h"
#include "support/wire.h"

namespace mdns {

// Equal in name, type, class, cache-flush bit, TTL and rdata.
bool operator==(const Record& a, const Record& b);
void PrintTo(const Record& record, std::ostream* out);
void PrintTo(const Question& question, std::ostream* out);

}  // namespace mdns

namespace mdns::test {

using wire::bytes, wire::Counts, wire::header, wire::label, wire::name, wire::number16, wire::number32, wire::record,
    wire::srv, wire::text;

constexpr Time operator""_ms(unsigned long long n) { return static_cast<Time>(n) * kMillisecond; }
constexpr Time operator""_s(unsigned long long n) { return static_cast<Time>(n) * kSecond; }
constexpr Time operator""_min(unsigned long long n) { return static_cast<Time>(n) * 60 * kSecond; }

// --- Records, with their usual TTLs and without the cache-flush bit

Record Ptr(std::string_view name, std::string_view target);
Record Srv(std::string_view name, std::string_view target, unsigned port = 631);
Record Txt(std::string_view name, std::string_view text);
Record A(std::string_view name, unsigned last_byte);
Record Aaaa(std::string_view name, unsigned last_byte);
Record Nsec(std::string_view name, const std::vector<std::uint16_t>& types);

Record Unique(Record record);  // with the cache-flush bit
Record Ttl(Record record, std::uint32_t seconds);
Record Goodbye(Record record);

// --- Questions and messages of other hosts

Question Qm(std::string_view name, std::uint16_t type);
Question Qu(std::string_view name, std::uint16_t type);

Endpoint Host(unsigned last_byte, std::uint16_t port = kPort);   // over IPv4
Endpoint Host6(unsigned last_byte, std::uint16_t port = kPort);  // the same over IPv6

struct Query {
  std::vector<Question> questions = {};
  std::vector<Record> known = {};     // the Answer Section
  std::vector<Record> proposed = {};  // the Authority Section: a probe
  bool is_truncated = false;
  Endpoint from = Host(2);
  bool to_group = true;
  bool is_local = true;
  unsigned id = 0;
};

struct Response {
  std::vector<Record> answers = {};
  std::vector<Record> authorities = {};
  std::vector<Record> additionals = {};
  std::vector<Question> questions = {};
  Endpoint from = Host(2);
  bool to_group = true;
  bool is_local = true;
  unsigned flags = 0x8400;
  unsigned id = 0;
};

// A probe for the name of these records.
Query Probe(const std::vector<Record>& proposed, Endpoint from = Host(2));

// --- What the link does

struct Sent {
  Time at = 0;  // since the last Mark
  Protocols protocols = kNoProtocol;
  Endpoint to;  // where protocols is kNoProtocol
  std::vector<std::uint8_t> bytes;
  unsigned flags = 0;
  Message message;

  bool is_reply() const { return protocols == kNoProtocol; }
};

void PrintTo(const Sent& sent, std::ostream* out);

struct Reported {
  Time at = 0;  // since the last Mark
  Event event;
};

// All records of a message, in its order.
std::vector<Record> records_of(const Message& message);

void PrintTo(const Reported& reported, std::ostream* out);

class LinkTest : public testing::Test {
 protected:
  LinkTest() { GivenLink(); }

  // Replaces the link by a new one. Marks.
  void GivenLink(Protocols protocols = kIpv4, std::uint64_t seed = 1);

  // Publishes the records, which have one name, and waits until they are established, announced and 10 s old. Marks.
  void GivenPublished(Claim claim, const std::vector<Record>& records);

  // Asks, and waits until the answers that are given are cached. Marks.
  QueryId GivenAsked(std::string_view labels, std::uint16_t type, const std::vector<Record>& answers = {});

  PublicationId Publish(Claim claim, const std::vector<Record>& records);
  bool Update(PublicationId id, const Record& record);
  void Withdraw(PublicationId id);
  QueryId Start(std::string_view labels, std::uint16_t type);
  void Stop(QueryId id);

  // A response, a query or any datagram of another host arrives.
  void ReceivesAnswers(const std::vector<Record>& answers);
  void ReceivesResponse(const Response& response);
  void Asks(const Question& question);
  void Asks(const Query& query);
  void Receives(const std::string& bytes, const Endpoint& from, bool to_group = true, bool is_local = true);

  // Settle: the link does what is due now. After: time passes, and the link does what becomes due.
  void Settle();
  void After(Time duration);
  bool AfterUntil(Time at_most, const std::function<bool()>& condition);

  // Sets the start of all times to now, and forgets what was sent and reported before.
  void Mark();

  // --- What was sent and reported since the last Mark

  // When the question was sent; when the record was multicast, in any section of a response.
  std::vector<Time> AskedAt(std::string_view labels, std::uint16_t type) const;
  std::vector<Time> SentAt(const Record& record) const;

  // All records that were multicast; the messages of each kind.
  std::vector<Record> SentRecords() const;
  std::vector<Sent> Queries() const;
  std::vector<Sent> Responses() const;
  std::vector<Sent> Replies() const;

  // When the record, or the publication, was reported.
  std::vector<Time> AddedAt(const Record& record) const { return ReportedAt(Event::Kind::added, record); }
  std::vector<Time> RemovedAt(const Record& record) const { return ReportedAt(Event::Kind::removed, record); }
  std::vector<Time> EstablishedAt(PublicationId id) const { return ReportedAt(Event::Kind::established, id); }
  std::vector<Time> ConflictAt(PublicationId id) const { return ReportedAt(Event::Kind::conflict, id); }

  LinkPtr link;
  Time now = 0;
  std::vector<Sent> sent;
  std::vector<Reported> reported;

 private:
  std::vector<Time> ReportedAt(Event::Kind kind, const Record& record) const;
  std::vector<Time> ReportedAt(Event::Kind kind, PublicationId id) const;
  void LoopBack(const Datagram& datagram);

  Time mark_ = 0;
};

}  // namespace mdns::test
