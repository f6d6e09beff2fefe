// SPDX-License-Identifier: MIT
// Lifecycle of a responder: the first publication with a long name on an interface makes it, the last one ends it. A question
// that it hears has the publication's records announced once more, in good time.
#include "dnssd/long_names.h"

#include <iterator>
#include <map>
#include <memory>

#include "dnssd/announcer.h"
#include "dnssd/group_ear.h"
#include "dnssd/publications.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// The longest escaped name that Avahi finds room for, with a zero behind it.
constexpr std::size_t kReadableMax = 255;

struct LongNamed {
  Serial publication;
  std::uint16_t rrtype;
};

struct Responder {
  GroupEar ear;
  std::unordered_multimap<std::string, LongNamed> records;  // by folded name, Avahi text
};

// By interface index; never destroyed, and forgotten in a forked child, for the reasons that departures.cpp gives.
std::map<std::uint32_t, std::unique_ptr<Responder>>& responders = *new std::map<std::uint32_t, std::unique_ptr<Responder>>;
const Engine* responders_owner = nullptr;

void forget_foreign_responders() {
  if (responders_owner == gEngine) {
    return;
  }
  for (auto& [index, responder] : responders) {
    static_cast<void>(responder.release());
  }
  responders.clear();
  responders_owner = gEngine;
}

bool is_long(const std::string& name) { return name.size() > kReadableMax; }

void answer(const Responder& responder, const Question& question, bool is_probe) {
  const std::string name = name_to_avahi(question.name);
  if (!is_long(name)) {
    return;
  }
  const auto [begin, end] = responder.records.equal_range(fold_case(name));
  for (auto record = begin; record != end; ++record) {
    Publication* publication = publication_find(record->second.publication);
    if (publication != nullptr && (question.rrtype == record->second.rrtype || question.rrtype == AVAHI_DNS_TYPE_ANY)) {
      announce_in_answer(*publication, is_probe);
    }
  }
}

void message_arrived(AvahiWatch*, int fd, AvahiWatchEvent, void* userdata) {
  const Responder& responder = *static_cast<Responder*>(userdata);
  HeardMessage message;
  if (!group_ear_read(fd, message) || message.length < kMessageHeaderSize) {
    return;
  }
  MessageReader reader{message.span(), 2};
  const unsigned flags = *reader.number16();
  const unsigned questions = *reader.number16();
  reader.number16();
  const bool is_probe = *reader.number16() > 0;  // RFC 6762 section 8.1: what it proposes stands in the authority section
  reader.number16();
  if ((flags & (kResponseBit | kOpcodeAndRcodeBits)) != 0) {
    return;
  }
  for (unsigned i = 0; i < questions; ++i) {
    const std::optional<Question> question = read_question(reader);
    if (!question) {
      return;
    }
    answer(responder, *question, is_probe);
  }
}

Responder& responder_for(std::uint32_t interface_index) {
  std::unique_ptr<Responder>& responder = responders[interface_index];
  if (responder == nullptr) {
    responder = std::make_unique<Responder>();
    group_ear_open(responder->ear, interface_index, message_arrived, responder.get());
  }
  return *responder;
}

void forget_name(Responder& responder, const std::string& name, Serial publication) {
  const auto [begin, end] = responder.records.equal_range(fold_case(name));
  for (auto record = begin; record != end;) {
    record = record->second.publication == publication ? responder.records.erase(record) : std::next(record);
  }
}

}  // namespace

void long_names_note(const Publication& publication) {
  for (const PublishedRecord& published : publication.records) {
    const AvahiKey& key = *published.record->key;
    if (is_long(key.name)) {
      forget_foreign_responders();
      responder_for(publication.server->interface_index)
          .records.emplace(fold_case(key.name), LongNamed{publication.serial, key.type});
    }
  }
}

void long_names_forget(const Publication& publication) {
  forget_foreign_responders();
  const auto found = responders.find(publication.server->interface_index);
  if (found == responders.end()) {
    return;
  }
  Responder& responder = *found->second;
  for (const PublishedRecord& published : publication.records) {
    forget_name(responder, published.record->key->name, publication.serial);
  }
  if (responder.records.empty()) {
    group_ear_close(responder.ear);
    responders.erase(found);
  }
}

}  // namespace dnssd
