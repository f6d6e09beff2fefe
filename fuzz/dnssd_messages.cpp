// SPDX-License-Identifier: MIT
// Multicast DNS messages that any host on the link hands to the DNS-SD library: all that reads them before Avahi or beside it.
//
// Claims: who passes over a name, a record or a question ends where who reads it does; who looks for a type of record finds each that
// can be read; a repeat is a message about
// something; what waits for an answer is taken from Avahi; own records say a message only if they are what is in it; of the
// pointers that are kept each one comes and goes in turn, and who follows them knows what is there, within their bounds.

#include <avahi-common/malloc.h>

#include <algorithm>
#include <set>

#include "dnssd/crowd_answers.h"
#include "dnssd/engine.h"
#include "dnssd/own_records.h"
#include "dnssd/pointer_records.h"
#include "dnssd/repeats.h"
#include "dnssd/server.h"
#include "fuzz.h"

using namespace dnssd;

namespace {

constexpr std::int64_t kSecond = 1'000'000;

void read_and_pass(std::span<const std::uint8_t> message) {
  MessageReader head_reader{message};
  const std::optional<MessageHead> head = read_message_head(head_reader);
  fuzz::claim(head.has_value() == (message.size() >= kMessageHeaderSize), "a message with room for a head has one");
  for (std::size_t at = head_reader.at; at < message.size(); ++at) {
    MessageReader reads{message, at};
    MessageReader passes{message, at};
    const std::optional<Name> name = read_name(reads);
    fuzz::claim(name.has_value() == pass_name(passes), "a name is read or refused by both");
    fuzz::claim(!name || reads.at == passes.at, "both end behind the name");
    fuzz::claim(!name || is_name_at(message, at, *name), "a name is the one that stands there");
  }
  MessageReader reads{message, head_reader.at};
  MessageReader passes = reads;
  fuzz::claim(read_question(reads).has_value() == pass_question(passes), "a question is read or refused by both");
  reads = passes = {message, head_reader.at};
  fuzz::claim(read_record_head(reads).has_value() == pass_record_head(passes).has_value(), "a record is read or refused by both");
}

void look_for_every_record(std::span<const std::uint8_t> message) {
  MessageReader reader{message};
  const std::optional<MessageHead> head = read_message_head(reader);
  unsigned questions = head ? head->questions : 0;
  while (questions > 0 && pass_question(reader)) {
    --questions;
  }
  if (!head || questions > 0)
    return;
  for (unsigned left = unsigned{head->answers} + head->authorities + head->additionals; left > 0; --left) {
    const std::optional<RecordHead> record = pass_record_head(reader);
    if (!record)
      return;
    fuzz::claim(holds_record(message, record->rrtype), "a message holds what can be read in it");
    reader.at += record->length;
  }
}

void find_pointers(std::span<const std::uint8_t> message) {
  PointerRecords records = pointer_records_of(message);
  while (const std::optional<PointerRecord> record = next_pointer_record(records)) {
    MessageReader owner{message, record->owner_at};
    MessageReader target{message, record->target_at};
    fuzz::claim(read_name(owner).has_value() && read_name(target).has_value(), "a pointer's names are well-formed");
  }
}

void hear_twice(Repeats& repeats, std::span<const std::uint8_t> message, std::int64_t at) {
  const Heard first = repeats_note(repeats, message, at);
  const Heard second = repeats_note(repeats, message, at + kSecond);
  fuzz::claim(first.keys == second.keys, "a message is about the same things each time");
  fuzz::claim(!first.is_repeat || !first.keys.empty(), "a repeat is about something");
}

// A server with a crowd of printers, without Avahi.
Server& town() {
  static Server* server = [] {
    fuzz::claim(engine_open() == kDNSServiceErr_NoError, "there is an engine");
    auto* made = new Server;
    crowd_answers_open(*made);
    made->ear = Ear::crowded;
    made->crowd_answers.pointers["_ipp._tcp.local"] = 2000;
    AvahiRecord* record = avahi_record_new_full("_ipp._tcp.local", AVAHI_DNS_CLASS_IN, AVAHI_DNS_TYPE_PTR, 4500);
    record->data.ptr.name = avahi_strdup("p._ipp._tcp.local");
    own_records_add(made->own_records, *record);
    avahi_record_unref(record);
    return made;
  }();
  return *server;
}

void ask_the_crowd(std::span<const std::uint8_t> message, bool is_to_all) {
  Server& server = town();
  const std::size_t before = server.crowd_answers.asked.size();
  const bool is_taken = crowd_answers_take(server, message, "from", is_to_all);
  fuzz::claim(is_taken || server.crowd_answers.asked.size() == before, "what is for Avahi does not wait here");
  fuzz::claim(server.crowd_answers.asked.size() <= before + 1, "a packet waits once");
  if (own_records_say(server.own_records, message)) {
    PointerRecords records = pointer_records_of(message);
    fuzz::claim(next_pointer_record(records).has_value(), "own records say what they are");
  }
}

// --- Pointers

constexpr std::array kFollowed{"_ipp._tcp.local", "_http._tcp.local"};

// One that follows a name, and what it knows: by protocol and folded target.
struct Follower {
  Operation operation;
  Lookup lookup;
  std::set<std::pair<AvahiProtocol, std::string>> present;
};

void note_told(Operation& operation, AvahiProtocol protocol, AvahiBrowserEvent event, AvahiRecord* record) {
  auto& present = static_cast<Follower*>(operation.context)->present;
  const std::pair pointer(protocol, fold_case(record->data.ptr.name));
  fuzz::claim(parse_name(record->data.ptr.name).has_value(), "a target is a name");
  if (event == AVAHI_BROWSER_NEW) {
    fuzz::claim(present.insert(pointer).second, "what is there does not come once more");
  } else {
    fuzz::claim(event == AVAHI_BROWSER_REMOVE && present.erase(pointer) == 1, "only what is there goes");
  }
}

// A server on whose link two names are followed, from the first message of an input to its last.
struct Followed {
  Followed() {
    static_cast<void>(town());  // for its engine
    for (std::size_t i = 0; i < kFollowed.size(); ++i) {
      followers[i].operation.context = &followers[i];
      followers[i].lookup.operation = &followers[i].operation;
      followers[i].lookup.server = &server;
      followers[i].lookup.callback = note_told;
      pointers_follow(followers[i].lookup, *parse_name(kFollowed[i]));
    }
    pass_time();
  }
  ~Followed() { pointers_close(server); }
  Followed(const Followed&) = delete;
  Followed& operator=(const Followed&) = delete;

  // Lets every list's timer fire.
  void pass_time() {
    for (const auto& [name, list] : server.pointers) {
      list->fires_at = 0;
      poll_timer_start(list->timer, 0);
    }
    const auto has_not_fired = [](const auto& entry) { return entry.second->fires_at == 0; };
    while (std::ranges::any_of(server.pointers, has_not_fired)) {
      fuzz::claim(poll_dispatch(gEngine->poll), "the loop runs");
    }
  }

  Server server;
  std::array<Follower, kFollowed.size()> followers;
};

// Makes everything that is remembered of a list so much older; what is never stays so.
void grow_older(PointerList& list, std::int64_t time) {
  for (PointersByTarget& pointers : list.pointers) {
    for (auto& [target, pointer] : pointers) {
      pointer.heard_at -= time;
      pointer.ends_at -= time;
      pointer.due_at -= time;
    }
  }
  list.due_at = std::min(list.due_at, monotonic_now());
  for (AskedByOthers& others : list.questions.others) {
    for (std::int64_t* at : {&others.asked_at, &others.first_at, &others.last_at, &others.judged_at}) {
      *at -= *at != 0 ? time : 0;
    }
  }
}

void claim_that_followers_know(const Followed& followed) {
  constexpr std::size_t kPointersMax = 8192;
  for (const Follower& follower : followed.followers) {
    std::size_t count = 0;
    for (const AvahiProtocol protocol : {AVAHI_PROTO_INET, AVAHI_PROTO_INET6}) {
      const PointersByTarget& pointers = follower.lookup.pointers->pointers[static_cast<std::size_t>(protocol)];
      fuzz::claim(pointers.size() <= kPointersMax, "no list grows beyond its bound");
      count += pointers.size();
      for (const auto& [target, pointer] : pointers) {
        fuzz::claim(follower.present.contains({protocol, target}), "what is there is known to be");
        fuzz::claim(pointer.due_at <= pointer.ends_at, "nothing is due after its end");
        fuzz::claim(follower.lookup.pointers->due_at <= pointer.due_at, "what is due is looked at in time");
      }
    }
    fuzz::claim(follower.present.size() == count, "what is known to be is there");
  }
  fuzz::claim(followed.server.pointers.size() == kFollowed.size(), "no message makes or ends a list");
}

void follow(Followed& followed, std::span<const std::uint8_t> message, std::uint8_t how) {
  const AvahiProtocol protocol = (how & 2) != 0 ? AVAHI_PROTO_INET6 : AVAHI_PROTO_INET;
  const auto known = [&] {
    std::size_t count = 0;
    for (const Follower& follower : followed.followers) {
      count += follower.present.size();
    }
    return count;
  };
  const std::size_t before = known();
  pointers_asked(followed.server, protocol, message);
  fuzz::claim(known() == before, "a question changes nothing");
  pointers_heard(followed.server, protocol, message);
  fuzz::claim(known() >= before, "what goes goes later");
  claim_that_followers_know(followed);
  if ((how & 4) != 0) {
    for (const auto& [name, list] : followed.server.pointers) {
      grow_older(*list, ((how & 8) != 0 ? 3000 : 2) * kSecond);
    }
    followed.pass_time();
    claim_that_followers_know(followed);
  }
}

}  // namespace

// A sequence of datagrams: a byte that says how each comes, two for its length, and its bytes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  Repeats repeats;
  Followed followed;
  std::int64_t at = 100 * kSecond;
  while (!input.empty()) {
    const std::uint8_t how = input.byte();
    const bool is_to_all = how % 2 == 0;
    const std::string bytes = input.long_bytes();
    const fuzz::Block block(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    read_and_pass(block.bytes());
    look_for_every_record(block.bytes());
    find_pointers(block.bytes());
    hear_twice(repeats, block.bytes(), at);
    ask_the_crowd(block.bytes(), is_to_all);
    follow(followed, block.bytes(), how);
    at += 2 * kSecond;
  }
  town().crowd_answers.asked.clear();
  return 0;
}
