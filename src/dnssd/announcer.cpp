// SPDX-License-Identifier: MIT
#include "dnssd/announcer.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <optional>

#include "dnssd/message.h"
#include "dnssd/multicast.h"
#include "dnssd/publications.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

constexpr unsigned kAnnouncements = 2;                // RFC 6762 section 8.3: at least two,
constexpr std::int64_t kAnnouncementGap = 1'000'000;  // one second apart (microseconds)

// What is established within this time shares a packet; far too short for anybody to notice.
constexpr std::int64_t kGather = 20'000;  // microseconds

// Records; the burst is what pacing.cpp commits at once, five a service, and the rate twice what it commits later.
constexpr Rate kAnnounceRate{1280, 1600};

// A goodbye's echo comes after every answer that Avahi may have had in store, and is needed if there has been a question in
// all the time by which a busy machine may be late.
constexpr std::int64_t kEchoAfter = 200'000;     // microseconds
constexpr std::int64_t kAnswersDue = 1'000'000;  // microseconds

// A full send buffer is waited for this long in all, so that a dead interface cannot hold up the process's end.
constexpr int kSendPatience = 300;  // milliseconds

// RFC 6762 section 6: a record is not multicast again within this time, which is shorter in answer to a probe (microseconds).
constexpr std::int64_t kRepeatGap = 1'000'000;
constexpr std::int64_t kRepeatGapToProbe = 250'000;

void send_message(const Server& server, const Message& message, int& patience) {
  if (message.answers > 0) {
    multicast_send(server, AVAHI_PROTO_INET, message.bytes, patience);
    multicast_send(server, AVAHI_PROTO_INET6, message.bytes, patience);
  }
}

// Appends a record, sending the message first when it is full.
void append(const Server& server, Message& message, AvahiRecord& record, std::uint32_t ttl, bool is_unique, int& patience) {
  if (message_add(message, record, ttl, is_unique)) {
    return;
  }
  send_message(server, message, patience);
  message = Message();
  message_add(message, record, ttl, is_unique);
}

void schedule(Publication& publication, std::int64_t at) {
  publication.announce_at = at;
  publication.server->announcer.due.emplace(at, publication.serial);
}

// Whether `publication` is to be announced at `at`; it may have been put off, withdrawn or superseded since that was noted.
bool is_due(const Publication* publication, std::int64_t at) {
  return publication != nullptr && publication->announce_at == at && publication->stage == Stage::established &&
         !publication->holders.empty();
}

// The next publication whose time has come and that may be sent now; null when there is none.
Publication* next_due(Announcer& announcer) {
  const std::int64_t now = monotonic_now();
  while (!announcer.due.empty() && announcer.due.begin()->first <= now) {
    if (announcer.allowance.left <= 0) {
      return nullptr;
    }
    const auto [at, serial] = *announcer.due.begin();
    announcer.due.erase(announcer.due.begin());
    Publication* publication = publication_find(serial);
    if (!is_due(publication, at)) {
      continue;
    }
    announcer.allowance.left -= static_cast<double>(publication->records.size());
    return publication;
  }
  return nullptr;
}

void set_timer(Announcer& announcer) {
  if (announcer.due.empty()) {
    return;
  }
  const std::int64_t until_due = announcer.due.begin()->first - monotonic_now();
  poll_timer_start(announcer.timer, std::max<std::int64_t>({until_due, allowance_wait(announcer.allowance, kAnnounceRate), 1}));
}

// What is announced anew must not be withdrawn by the echo of an earlier goodbye.
void forget_echoes(Announcer& announcer, const AvahiRecord& live) {
  const auto [begin, end] = announcer.echoes.equal_range(fold_case(live.key->name));
  for (auto echo = begin; echo != end;) {
    if (avahi_record_equal_no_ttl(echo->second.record, &live) == 0) {
      ++echo;
      continue;
    }
    avahi_record_unref(echo->second.record);
    echo = announcer.echoes.erase(echo);
  }
}

void send_due(AvahiTimeout*, void* userdata) {
  Server& server = *static_cast<Server*>(userdata);
  Announcer& announcer = server.announcer;
  allowance_grow(announcer.allowance, kAnnounceRate);
  Message message;
  int patience = 0;  // an announcement that finds no room is made good by the second one
  while (Publication* publication = next_due(announcer)) {
    for (const PublishedRecord& published : publication->records) {
      append(server, message, *published.record, published.record->ttl, published.flags & AVAHI_PUBLISH_UNIQUE, patience);
      forget_echoes(announcer, *published.record);
    }
    publication->announced_at = monotonic_now();
    if (--publication->announcements_left > 0) {
      schedule(*publication, monotonic_now() + kAnnouncementGap);
    }
    withdraw_replaced(*publication);
  }
  send_message(server, message, patience);
  set_timer(announcer);
}

// Whether Avahi may have an answer in store: to a question, or to a goodbye of ours. That is looped back to it, and if the
// record has been published again meanwhile, it takes it for another host's mistake and says all that it has of the name and type.
bool may_be_answering(const Server& server) {
  const std::int64_t now = monotonic_now();
  const auto is_recent = [now](std::int64_t at) { return at != 0 && now - at < kAnswersDue; };
  return is_recent(server.announcer.published_again_at) ||
         std::any_of(std::begin(server.gates), std::end(server.gates),
                     [&](const Gate& gate) { return is_recent(gate.asked_at); });
}

// Takes over the reference to `record`.
void note_echo(Announcer& announcer, AvahiRecord* record, std::int64_t at) {
  if (announcer.echoes.empty()) {
    poll_timer_start(announcer.echo_timer, kEchoAfter);
  }
  announcer.echoes.emplace(fold_case(record->key->name), Echo{at, record});
}

// Moves the echoes that are due by `until` to the goodbyes.
void take_echoes(Announcer& announcer, std::int64_t until) {
  for (auto echo = announcer.echoes.begin(); echo != announcer.echoes.end();) {
    if (echo->second.at > until) {
      ++echo;
      continue;
    }
    announcer.goodbyes.push_back(echo->second.record);
    echo = announcer.echoes.erase(echo);
  }
}

void send_all_goodbyes(Server& server, bool with_echoes) {
  std::vector<AvahiRecord*> goodbyes;
  goodbyes.swap(server.announcer.goodbyes);
  Message message;
  int patience = kSendPatience;
  const std::int64_t echo_at = monotonic_now() + kEchoAfter;
  for (AvahiRecord* record : goodbyes) {
    append(server, message, *record, 0, false, patience);
    if (with_echoes) {
      note_echo(server.announcer, record, echo_at);
    } else {
      avahi_record_unref(record);
    }
  }
  send_message(server, message, patience);
}

void send_echoes(AvahiTimeout*, void* userdata) {
  Server& server = *static_cast<Server*>(userdata);
  Announcer& announcer = server.announcer;
  send_goodbyes(server);
  take_echoes(announcer, monotonic_now());
  send_all_goodbyes(server, false);
  if (!announcer.echoes.empty()) {
    poll_timer_start(announcer.echo_timer, kEchoAfter);
  }
}

// When it may be said in answer to a question; nothing when it has just been said, or is about to be.
std::optional<std::int64_t> answer_time(const Publication& publication, bool to_probe) {
  const std::int64_t now = monotonic_now();
  if (publication.stage != Stage::established || (!to_probe && now - publication.announced_at < kRepeatGap)) {
    return std::nullopt;
  }
  const std::int64_t at = to_probe ? std::max(now, publication.announced_at + kRepeatGapToProbe) : now + kGather;
  return publication.announcements_left > 0 && publication.announce_at <= at ? std::nullopt : std::optional(at);
}

}  // namespace

void announcer_open(Server& server) {
  server.announcer.allowance = {kAnnounceRate.burst, monotonic_now()};
  server.announcer.timer = poll_timer_new(gEngine->poll, send_due, &server);
  server.announcer.echo_timer = poll_timer_new(gEngine->poll, send_echoes, &server);
}

void announcer_close(Server& server) {
  poll_timer_free(server.announcer.timer);
  server.announcer.timer = nullptr;
  poll_timer_free(server.announcer.echo_timer);
  server.announcer.echo_timer = nullptr;
  server.announcer.due.clear();
  take_echoes(server.announcer, std::numeric_limits<std::int64_t>::max());
}

void announce(Publication& publication) {
  publication.announcements_left = kAnnouncements;
  const std::int64_t at = monotonic_now() + kGather;
  schedule(publication, publication.announce_by != 0 ? std::min(at, publication.announce_by) : at);
  publication.announce_by = 0;
  set_timer(publication.server->announcer);
}

bool may_be_announced_in_answer(const Publication& publication) { return answer_time(publication, false).has_value(); }

void announce_in_answer(Publication& publication, bool to_probe) {
  const std::optional<std::int64_t> at = answer_time(publication, to_probe);
  if (!at) {
    return;
  }
  publication.announcements_left = std::max(publication.announcements_left, 1u);
  schedule(publication, *at);
  set_timer(publication.server->announcer);
}

bool is_announced(const Publication& publication) {
  return publication.stage == Stage::established && publication.announcements_left < kAnnouncements;
}

void say_goodbye(const Publication& publication) {
  for (const PublishedRecord& published : publication.records) {
    publication.server->announcer.goodbyes.push_back(avahi_record_ref(published.record));
  }
}

void send_goodbyes(Server& server) { send_all_goodbyes(server, server.avahi != nullptr && may_be_answering(server)); }

}  // namespace dnssd
