// SPDX-License-Identifier: MIT
// Multicast DNS messages that any host on the link hands to the DNS-SD library: all that reads them before Avahi or beside it.
//
// Claims: who passes over a name, a record or a question ends where who reads it does; a repeat is a message about
// something; what waits for an answer is taken from Avahi; own records say a message only if they are what is in it.

#include <avahi-common/malloc.h>

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

}  // namespace

// A sequence of datagrams: a byte that says how each comes, two for its length, and its bytes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  Repeats repeats;
  std::int64_t at = 100 * kSecond;
  while (!input.empty()) {
    const bool is_to_all = input.byte() % 2 == 0;
    const std::string bytes = input.long_bytes();
    const fuzz::Block block(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    read_and_pass(block.bytes());
    find_pointers(block.bytes());
    hear_twice(repeats, block.bytes(), at);
    ask_the_crowd(block.bytes(), is_to_all);
    at += 2 * kSecond;
  }
  town().crowd_answers.asked.clear();
  return 0;
}
