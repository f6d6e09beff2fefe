// SPDX-License-Identifier: MIT
// A link of the engine in company: sequences of datagrams with time between them, while queries and publications come
// and go.
//
// Claims: time that passes is used (no deadline is due again at once without end); what is sent is well formed and no
// larger than a packet may be; a query is told no record twice without its removal, and no removal of what it was not
// told; when everything has been stopped and all lifetimes are over, nothing is left.
#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "fuzz.h"
#include "mdns/link_counts.h"
#include "mdns/mdns.h"
#include "mdns/wire/name.h"
#include "mdns/wire/reader.h"
#include "mdns/wire/writer.h"
#include "support/wire.h"

using namespace mdns;

namespace {

constexpr Time kLongest = 2 * 3600 * kSecond;
constexpr int kTurnsAtMost = 200;  // that one moment may take: packets are paced, so that nothing has to be done more
                                   // often

const std::string kNames[] = {wire::name("_ipp._tcp.local"),     wire::name("One._ipp._tcp.local"),
                              wire::name("Two._ipp._tcp.local"), wire::name("_services._dns-sd._udp.local"),
                              wire::name("host.local"),          wire::name("HOST.local"),
                              wire::name("other.local"),         wire::name("local")};
constexpr std::uint16_t kTypes[] = {kTypeA,     kTypePtr,  kTypeTxt,   kTypeAaaa, kTypeSrv,
                                    kTypeCname, kTypeNsec, kTypeHinfo, 300};
constexpr std::uint32_t kTtls[] = {0, 1, 2, 10, 60, 119, 120, 4500, 75, 0x7FFFFFFF, 0xFFFFFFFF};
constexpr Time kSteps[] = {
    0,       kMillisecond, 20 * kMillisecond, 100 * kMillisecond, 250 * kMillisecond, 500 * kMillisecond,
    kSecond, 10 * kSecond, 100 * kSecond,     1200 * kSecond};

std::string rdata_of(fuzz::Input& input, std::uint16_t type) {
  const std::string& name = kNames[input.below(std::size(kNames))];
  const char last = static_cast<char>(input.below(4));
  switch (type) {
    case kTypeA:
      return {10, 0, 0, last};
    case kTypeAaaa:
      return std::string(15, '\xFD') + last;
    case kTypePtr:
    case kTypeCname:
      return name;
    case kTypeSrv:
      return std::string{0, 0, 0, 0, 1, last} + name;
    case kTypeNsec:
      return name + std::string{0, 1, static_cast<char>(64 + last)};
    case kTypeHinfo:
      return {1, last, 1, last};
    default:
      return {1, last};
  }
}

class Company {
 public:
  explicit Company(std::uint8_t seed) : link_(link_new(seed, kBothProtocols)) {}

  void step(fuzz::Input& input) {
    switch (input.below(9)) {
      case 0:
        receive(input, input.bytes());
        break;
      case 1:
      case 2:
        receive(input, composed(input));
        break;
      case 3:
        pass(kSteps[input.below(std::size(kSteps))]);
        break;
      case 4:
        queries_.push_back(query_start(*link_, now_, kNames[input.below(std::size(kNames))],
                                       kTypes[input.below(std::size(kTypes))], 1));
        break;
      case 5:
        publish_something(input);
        break;
      case 6:
        change_something(input);
        break;
      case 7:
        input.byte() % 2 == 0 ? link_set_protocols(*link_, now_, input.byte() & kBothProtocols)
                              : link_restart(*link_, now_, input.byte() % 2 != 0);
        break;
      default:
        stop_something(input);
    }
    serve();
  }

  void end() {
    for (const QueryId id : queries_)
      query_stop(*link_, now_, id);
    for (const PublicationId id : publications_)
      publication_withdraw(*link_, now_, id);
    pass(kLongest);
    const LinkCounts counts = link_counts(*link_);
    fuzz::claim(
        counts.cached + counts.questions + counts.published + counts.names + counts.sources + counts.waiting == 0,
        "nothing is left of what is over");
    fuzz::claim(link_deadline(*link_) == kNever, "nothing is planned when nothing is left");
  }

 private:
  static std::string composed(fuzz::Input& input) {
    Writer writer = writer_new(input.byte() % 3 != 0);
    for (std::size_t i = input.below(3); i > 0; --i) {
      const std::uint16_t type = input.byte() % 4 == 0 ? kTypeAny : kTypes[input.below(std::size(kTypes))];
      writer_add_question(writer, kNames[input.below(std::size(kNames))], type, input.byte() % 4 == 0);
    }
    for (const Section section : {Section::answers, Section::authorities}) {
      for (std::size_t i = input.below(section == Section::answers ? 5 : 3); i > 0; --i) {
        const std::uint16_t type = kTypes[input.below(std::size(kTypes))];
        const std::string& name = kNames[input.below(std::size(kNames))];
        const std::uint32_t ttl = kTtls[input.below(std::size(kTtls))];
        const bool flush = input.byte() % 2 != 0;
        writer_add_record(writer, section, name, type, ttl, flush, rdata_of(input, type));
      }
    }
    if (input.byte() % 8 == 0)
      writer_set_truncated(writer);
    const std::vector<std::uint8_t> bytes = writer_take(writer);
    return {bytes.begin(), bytes.end()};
  }

  void receive(fuzz::Input& input, const std::string& message) {
    const fuzz::Block block(reinterpret_cast<const std::uint8_t*>(message.data()), message.size());
    const std::uint8_t how = input.byte();
    Received received;
    received.source.protocol = how & 1 ? kIpv6 : kIpv4;
    received.source.port = how & 2 && how & 4 ? 4000 : kPort;
    received.source.address[0] = how >> 5;
    received.to_group = (how & 0x18) != 0x18;
    received.is_local = (how & 0x1C) != 0x1C;
    received.bytes = block.bytes();
    link_receive(*link_, now_, received);
  }

  void publish_something(fuzz::Input& input) {
    std::vector<RecordData> records;
    for (std::size_t i = 1 + input.below(2); i > 0; --i) {
      const std::uint16_t type = kTypes[input.below(5)];
      records.push_back({type, kTtls[1 + input.below(6)], rdata_of(input, type)});
    }
    constexpr Claim kClaims[] = {Claim::shared, Claim::unique, Claim::exclusive};
    publications_.push_back(
        publish(*link_, now_, kNames[input.below(std::size(kNames))], records, kClaims[input.below(3)], 2));
  }

  void change_something(fuzz::Input& input) {
    if (publications_.empty())
      return;
    const std::uint16_t type = kTypes[input.below(5)];
    publication_update(*link_, now_, publications_[input.below(publications_.size())],
                       {type, 0, rdata_of(input, type)});
  }

  void stop_something(fuzz::Input& input) {
    if (input.byte() % 2 == 0 && !queries_.empty()) {
      query_stop(*link_, now_, queries_[input.below(queries_.size())]);
    } else if (!publications_.empty()) {
      const PublicationId id = publications_[input.below(publications_.size())];
      publication_withdraw(*link_, now_, id, input.byte() % 4 != 0);
    }
  }

  void pass(Time span) {
    for (const Time end = now_ + span; now_ < end;) {
      serve();
      now_ = std::min(end, std::max(link_deadline(*link_), now_ + 1));
    }
  }

  void serve() {
    int turns = 0;
    do {
      link_advance(*link_, now_);
      for (const Event& event : link_take_events(*link_))
        note(event);
      for (const Datagram& datagram : link_take_datagrams(*link_))
        check(datagram);
      fuzz::claim(++turns < kTurnsAtMost, "a moment comes to its end");
    } while (link_deadline(*link_) <= now_);
  }

  void note(const Event& event) {
    std::string data = event.rdata;
    if (event.type != kTypeTxt)
      std::ranges::transform(data, data.begin(), [](char c) { return fold(c); });
    std::set<std::pair<std::uint16_t, std::string>>& known = told_[event.id];
    if (event.kind == Event::Kind::added)
      fuzz::claim(known.insert({event.type, data}).second, "no record is told twice");
    if (event.kind == Event::Kind::removed)
      fuzz::claim(known.erase({event.type, data}) == 1, "only what was told is taken back");
  }

  static void check(const Datagram& datagram) {
    fuzz::claim(datagram.bytes.size() <= kLargeDatagramMax, "a packet has its bound");
    const std::optional<Message> message = read_message(datagram.bytes);
    fuzz::claim(message.has_value(), "what is sent can be read");
    const std::size_t records = message->answers.size() + message->authorities.size() + message->additionals.size();
    fuzz::claim(records + message->questions.size() > 0, "no packet is empty");
    fuzz::claim(datagram.bytes.size() <= kDatagramMax || records == 1, "only a single record takes more than a frame");
  }

  LinkPtr link_;
  Time now_ = kSecond;
  std::vector<QueryId> queries_;
  std::vector<PublicationId> publications_;
  std::map<std::uint64_t, std::set<std::pair<std::uint16_t, std::string>>> told_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  Company company(input.byte());
  while (!input.empty())
    company.step(input);
  company.end();
  return 0;
}
