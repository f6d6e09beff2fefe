// SPDX-License-Identifier: MIT
#include "dnssd/pointer_questions.h"

#include <avahi-core/rr.h>

#include <algorithm>
#include <cstdlib>
#include <span>
#include <vector>

#include "dnssd/message.h"
#include "dnssd/message_reader.h"
#include "dnssd/multicast.h"
#include "dnssd/pointers.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

constexpr std::int64_t kSecond = 1'000'000;  // microseconds

// RFC 6762 section 5.2: a question waits for 20 to 120 ms, so that hosts that were awoken together do not ask together.
constexpr std::int64_t kJitterMin = 20'000;
constexpr std::int64_t kJitterSpread = 100'000;

// The same section: the second question follows after a second at least, and each interval is twice the one before, up to an hour.
constexpr std::int64_t kFirstInterval = kSecond;
constexpr std::int64_t kIntervalMax = 3600 * kSecond;

// And the parts of a lifetime after which a record is asked for again, plus up to two hundredths.
constexpr std::array<std::int64_t, 4> kAskAgainPercents{80, 85, 90, 95};
constexpr std::int64_t kPerTenThousandSpread = 200;

// A question that another host asked so short a time ago is not asked once more.
constexpr std::int64_t kJustAsked = kSecond - 1'000;

// RFC 6762 section 10.5 has two questions without answer be enough. These are some more: a link that loses packets loses several,
// and a service that is taken for gone is withdrawn elsewhere.
constexpr unsigned kUnanswered = 4;
constexpr std::int64_t kAnswersWithin = 10 * kSecond;
constexpr std::int64_t kTogether = 60 * kSecond;  // what is further apart does not count together

// Packets that say what is known already of one name. Twice what two thousand services of usual names take; of more, somebody makes them up, and
// what is left unsaid is answered.
constexpr unsigned kKnownPacketsMax = 128;

std::int64_t jitter() { return kJitterMin + std::rand() % kJitterSpread; }

std::uint32_t seconds_left(const Pointer& pointer, std::int64_t now) {
  return static_cast<std::uint32_t>(std::max<std::int64_t>(pointer.ends_at - now, 0) / kSecond);
}

// RFC 6762 section 7.1: whoever has it must not lose it for want of an answer.
bool is_worth_saying(const Pointer& pointer, std::int64_t now) { return seconds_left(pointer, now) > pointer.ttl / 2; }

// Appends what is known. False when the query is full.
bool say_known(const PointerList& list, const Pointer& pointer, Message& query, std::int64_t now) {
  AvahiRecord* record = pointer_record(list, pointer);
  const bool is_said = message_add(query, *record, seconds_left(pointer, now), false);
  avahi_record_unref(record);
  return is_said;
}

// Sends the query, and begins the next one.
void go_on(const PointerList& list, AvahiProtocol protocol, Message& query) {
  int patience = 0;
  message_continues(query);
  multicast_send(*list.server, protocol, query.bytes, patience);
  query = message_query();
}

// Appends all that is known of the list. How many packets it took.
unsigned say_all_known(const PointerList& list, AvahiProtocol protocol, Message& query, std::int64_t now) {
  unsigned packets = 1;
  for (const auto& [target, pointer] : list.pointers[static_cast<std::size_t>(protocol)]) {
    if (!is_worth_saying(pointer, now) || say_known(list, pointer, query, now)) {
      continue;
    }
    if (packets == kKnownPacketsMax) {
      break;
    }
    ++packets;
    go_on(list, protocol, query);
    say_known(list, pointer, query, now);
  }
  return packets;
}

// Asks for as many of the lists as one packet has room for, which are returned.
std::size_t ask_together(std::span<PointerList* const> lists, AvahiProtocol protocol, std::int64_t now) {
  Message query = message_query();
  std::size_t count = 0;
  while (count < lists.size() && message_ask(query, lists[count]->name, AVAHI_DNS_TYPE_PTR)) {
    ++count;
  }
  for (PointerList* list : lists.first(count)) {
    const unsigned packets = say_all_known(*list, protocol, query, now);
    list->questions.packets = std::max(list->questions.packets, packets);
  }
  int patience = 0;  // a question that finds no room is asked again
  multicast_send(*lists.front()->server, protocol, query.bytes, patience);
  return count;
}

// The protocols over which something is due.
unsigned take_due(PointerQuestions& questions, std::int64_t now) {
  unsigned wanted = 0;
  if (now >= questions.next_at) {
    wanted = 1u | 2u;
    questions.next_at = now + questions.interval;
    questions.interval = std::min(2 * questions.interval, kIntervalMax);
  }
  if (questions.again_at != 0 && now >= questions.again_at) {
    wanted |= questions.again_over;
  }
  if (wanted != 0) {
    questions.again_at = 0;
    questions.again_over = 0;
    questions.asked_at = now;
    questions.packets = 1;
    questions.next_at = std::max(questions.next_at, now + kFirstInterval);
  }
  return wanted;
}

bool is_just_asked(const PointerQuestions& questions, AvahiProtocol protocol, std::int64_t now) {
  const std::int64_t asked_at = questions.others[static_cast<std::size_t>(protocol)].asked_at;
  return asked_at != 0 && now - asked_at < kJustAsked;
}

bool is_beginning(const PointerList& list) { return pointers_are_followed(list) && list.questions.interval == kFirstInterval; }

// A random moment, that of another list's first question if there is one: from then on both are due at the same times.
std::int64_t first_moment(const PointerList& list, std::int64_t now) {
  for (const auto& [name, other] : list.server->pointers) {
    const std::int64_t due = other->questions.next_at;
    if (other.get() != &list && is_beginning(*other) && due > now && due < now + kJitterMin + kJitterSpread) {
      return due;
    }
  }
  return now + jitter();
}

}  // namespace

void questions_begin(PointerList& list, std::int64_t now) {
  PointerQuestions& questions = list.questions;
  const std::int64_t at = first_moment(list, now);
  const std::int64_t earliest = questions.asked_at == 0 ? at : std::max(at, questions.asked_at + kFirstInterval);
  // One that is due anyway is not put off: whoever begins again and again would never be asked for.
  questions.next_at = questions.next_at > now ? std::min(questions.next_at, earliest) : earliest;
  questions.interval = kFirstInterval;
  questions.again_at = 0;
  questions.again_over = 0;
}

std::int64_t questions_due(const PointerQuestions& questions) {
  return questions.again_at == 0 ? questions.next_at : std::min(questions.next_at, questions.again_at);
}

void questions_ask(Server& server, std::int64_t now) {
  std::array<std::vector<PointerList*>, 2> asked;
  for (const auto& [name, list] : server.pointers) {
    const unsigned wanted = pointers_are_followed(*list) ? take_due(list->questions, now) : 0;
    for (const AvahiProtocol protocol : {AVAHI_PROTO_INET, AVAHI_PROTO_INET6}) {
      if ((wanted & 1u << protocol) != 0 && !is_just_asked(list->questions, protocol, now)) {
        asked[static_cast<std::size_t>(protocol)].push_back(list.get());
      }
    }
  }
  for (const AvahiProtocol protocol : {AVAHI_PROTO_INET, AVAHI_PROTO_INET6}) {
    const std::span<PointerList* const> lists(asked[static_cast<std::size_t>(protocol)]);
    for (std::size_t done = 0; done < lists.size();) {
      done += ask_together(lists.subspan(done), protocol, now);
    }
  }
}

void questions_want(PointerQuestions& questions, AvahiProtocol protocol, std::int64_t now) {
  questions.again_over |= 1u << protocol;
  if (questions.again_at == 0) {
    questions.again_at = std::max(now + jitter(), questions.asked_at + kFirstInterval * questions.packets);
  }
}

std::int64_t pointer_due(const Pointer& pointer) {
  if (pointer.asked >= kAskAgainPercents.size()) {
    return pointer.ends_at;
  }
  const std::int64_t part = kAskAgainPercents[pointer.asked] * 100 + std::rand() % kPerTenThousandSpread;
  return std::min(pointer.heard_at + pointer.ttl * kSecond / 10'000 * part, pointer.ends_at);
}

void questions_note(PointerQuestions& questions, AvahiProtocol protocol, const Question& question, std::int64_t now) {
  if (question.rrtype != AVAHI_DNS_TYPE_PTR || question.rrclass != AVAHI_DNS_CLASS_IN) {
    return;
  }
  AskedByOthers& others = questions.others[static_cast<std::size_t>(protocol)];
  others.asked_at = now;
  if (others.count == 0 || now - others.last_at > kTogether) {
    others = {now, now, now, 0, 1};
    return;
  }
  if (now - others.last_at < kSecond) {
    return;
  }
  others.last_at = now;
  if (++others.count == kUnanswered) {
    others.judged_at = now + kAnswersWithin;
  }
}

}  // namespace dnssd
