// SPDX-License-Identifier: MIT
// Lifecycle of a question: crowd_answers_take notes it; further packets of its asker say what is known; when its time has come its
// answers are handed to the announcer and it is over.
#include "dnssd/crowd_answers.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>

#include "dnssd/announcer.h"
#include "dnssd/canonical_record.h"
#include "dnssd/publications.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// More pointers of one name than an ordinary link holds; what Avahi does for so many takes some hundredths of a second.
constexpr unsigned kCrowd = 200;

// RFC 6762 section 6: answers of several hosts are spread over 20 to 120 ms, of which the announcer takes the first 20; section 7.2:
// 400 to 500 ms when the asker has more to say.
constexpr std::int64_t kSpread = 100'000;          // microseconds
constexpr std::int64_t kAwaitsKnownFor = 380'000;  // microseconds

// Askers that may wait, and records that each may say it knows: what goes beyond is said once too often.
constexpr std::size_t kAskedMax = 16;
constexpr std::size_t kKnownMax = 24'000;

// Askers that have to be answered directly are few and simple ones (RFC 6762 section 6.7), and ask again.
constexpr Rate kDirectRate{1, 0.2};

struct HeardQuery {
  bool is_truncated = false;
  Questions questions;
  unsigned answers = 0;  // as many as it claims to have
  std::unordered_map<std::uint64_t, std::uint32_t> known;
};

// What is asked; the reader moves behind the questions. Nothing for what is no query, or a probe (RFC 6762 section 8.2), or malformed.
std::optional<HeardQuery> read_questions(MessageReader& reader) {
  const std::optional<MessageHead> head = read_message_head(reader);
  if (!head || (head->flags & (kResponseBit | kOpcodeAndRcodeBits)) != 0 || head->authorities != 0) {
    return std::nullopt;
  }
  HeardQuery query;
  query.is_truncated = (head->flags & kTruncatedBit) != 0;
  query.answers = head->answers;
  for (unsigned i = 0; i < head->questions; ++i) {
    const std::optional<Question> question = read_question(reader);
    if (!question) {
      return std::nullopt;
    }
    query.questions.emplace(fold_case(name_to_avahi(question->name)), question->rrtype);
  }
  return query;
}

// What the asker knows, which stands behind the questions. False when it is malformed.
bool read_known(MessageReader& reader, HeardQuery& query) {
  for (unsigned i = 0; i < query.answers; ++i) {
    const std::optional<CanonicalRecord> record = read_canonical_record(reader);
    if (!record) {
      return false;
    }
    query.known.emplace(record_hash(*record), record->head.ttl);
  }
  return true;
}

bool asks_for(std::uint16_t question, std::uint16_t rrtype) { return question == rrtype || question == AVAHI_DNS_TYPE_ANY; }

bool is_for_crowd(const CrowdAnswers& crowd, const HeardQuery& query) {
  return std::ranges::any_of(query.questions, [&](const auto& question) {
    const auto found = crowd.pointers.find(question.first);
    return found != crowd.pointers.end() && found->second > kCrowd && asks_for(question.second, AVAHI_DNS_TYPE_PTR);
  });
}

bool is_wanted(const Asked& asked, AvahiRecord& record) {
  const std::string name = fold_case(record.key->name);
  if (!asked.questions.contains({name, record.key->type}) && !asked.questions.contains({name, AVAHI_DNS_TYPE_ANY})) {
    return false;
  }
  const std::optional<std::uint64_t> hash = record_hash(record);
  const auto known = hash ? asked.known.find(*hash) : asked.known.end();
  return known == asked.known.end() || known->second < record.ttl / 2;
}

void answer(const Server& server, const Asked& asked) {
  for (const auto& [serial, publication] : gEngine->publications) {
    const auto wanted = [&](const PublishedRecord& published) { return is_wanted(asked, *published.record); };
    if (publication->server == &server && may_be_announced_in_answer(*publication) &&
        std::ranges::any_of(publication->records, wanted)) {
      announce_in_answer(*publication, false);
    }
  }
}

void set_timer(CrowdAnswers& crowd) {
  if (!crowd.asked.empty()) {
    poll_timer_start(crowd.timer, std::max<std::int64_t>(crowd.asked.begin()->first - monotonic_now(), 1));
  }
}

void timer_fired(AvahiTimeout*, void* userdata) {
  Server& server = *static_cast<Server*>(userdata);
  CrowdAnswers& crowd = server.crowd_answers;
  while (!crowd.asked.empty() && crowd.asked.begin()->first <= monotonic_now()) {
    const auto due = crowd.asked.extract(crowd.asked.begin());
    answer(server, due.mapped());
  }
  set_timer(crowd);
}

void note_known(Asked& asked, const HeardQuery& query) {
  if (asked.known.size() < kKnownMax) {
    asked.known.insert(query.known.begin(), query.known.end());
  }
}

auto place_of(CrowdAnswers& crowd, const std::string& from) {
  return std::ranges::find_if(crowd.asked, [&](const auto& entry) { return entry.second.from == from; });
}

// A packet without questions says what is known beyond what stood in the one before it.
bool take_known(CrowdAnswers& crowd, const std::string& from, MessageReader& reader, HeardQuery& query) {
  const auto place = place_of(crowd, from);
  if (place == crowd.asked.end() || !read_known(reader, query)) {
    return false;
  }
  note_known(place->second, query);
  return true;
}

// One asker's packets wait together. When there is no place left, the last one is shared, and all that is asked for is said, whoever
// knows it.
bool share_place(CrowdAnswers& crowd, const std::string& from, HeardQuery& query) {
  auto place = place_of(crowd, from);
  if (place != crowd.asked.end()) {
    note_known(place->second, query);
  } else if (crowd.asked.size() >= kAskedMax) {
    place = std::prev(crowd.asked.end());
    place->second.known.clear();
  } else {
    return false;
  }
  place->second.questions.merge(query.questions);
  return true;
}

void note(CrowdAnswers& crowd, const std::string& from, HeardQuery& query) {
  if (share_place(crowd, from, query)) {
    return;
  }
  const std::int64_t at = monotonic_now() + (query.is_truncated ? kAwaitsKnownFor : 0) + std::rand() % kSpread;
  crowd.asked.emplace(at, Asked{from, std::move(query.questions), std::move(query.known)});
  set_timer(crowd);
}

// Of those that want a direct answer. It costs nothing then: a flood of them must not silence the later ones.
bool is_one_too_many(CrowdAnswers& crowd) {
  allowance_grow(crowd.direct, kDirectRate);
  if (crowd.direct.left < 1) {
    return true;
  }
  crowd.direct.left -= 1;
  return false;
}

}  // namespace

void crowd_answers_open(Server& server) {
  server.crowd_answers.direct = {kDirectRate.burst, monotonic_now()};
  server.crowd_answers.timer = poll_timer_new(gEngine->poll, timer_fired, &server);
}

void crowd_answers_close(Server& server) {
  poll_timer_free(server.crowd_answers.timer);
  server.crowd_answers.timer = nullptr;
  server.crowd_answers.asked.clear();
}

void crowd_answers_add(Server& server, const Publication& publication) {
  for (const PublishedRecord& published : publication.records) {
    if (published.record->key->type == AVAHI_DNS_TYPE_PTR) {
      ++server.crowd_answers.pointers[fold_case(published.record->key->name)];
    }
  }
}

void crowd_answers_remove(Server& server, const Publication& publication) {
  std::unordered_map<std::string, unsigned>& pointers = server.crowd_answers.pointers;
  for (const PublishedRecord& published : publication.records) {
    const auto found = pointers.find(fold_case(published.record->key->name));
    if (published.record->key->type == AVAHI_DNS_TYPE_PTR && found != pointers.end() && --found->second == 0) {
      pointers.erase(found);
    }
  }
}

bool crowd_answers_take(Server& server, std::span<const std::uint8_t> message, const std::string& from, bool is_to_all) {
  CrowdAnswers& crowd = server.crowd_answers;
  if (server.ear != Ear::crowded) {
    return false;
  }
  MessageReader reader{message};
  std::optional<HeardQuery> query = read_questions(reader);
  if (!query) {
    return false;
  }
  if (query->questions.empty()) {
    return take_known(crowd, from, reader, *query);
  }
  if (!is_for_crowd(crowd, *query)) {
    return false;
  }
  if (!is_to_all) {
    return is_one_too_many(crowd);
  }
  if (!read_known(reader, *query)) {
    return false;
  }
  note(crowd, from, *query);
  return true;
}

}  // namespace dnssd
