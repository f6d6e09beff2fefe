// SPDX-License-Identifier: MIT
// Questions are heard from the first publication with a long name on an interface to the last one. One for its name has the
// publication's records announced once more, in good time. A question that is missed is asked again, and a name that another host
// has taken because its probes were missed is found out when it announces it.
#include "dnssd/long_names.h"

#include <iterator>

#include "dnssd/announcer.h"
#include "dnssd/message_reader.h"
#include "dnssd/publications.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// The longest escaped name that Avahi finds room for, with a zero behind it.
constexpr std::size_t kReadableMax = 255;

bool is_long(const std::string& name) { return name.size() > kReadableMax; }

void answer(const LongNames& names, const Question& question, bool is_probe) {
  const std::string name = name_to_avahi(question.name);
  if (!is_long(name)) {
    return;
  }
  const auto [begin, end] = names.equal_range(fold_case(name));
  for (auto record = begin; record != end; ++record) {
    Publication* publication = publication_find(record->second.publication);
    if (publication != nullptr && (question.rrtype == record->second.rrtype || question.rrtype == AVAHI_DNS_TYPE_ANY)) {
      announce_in_answer(*publication, is_probe);
    }
  }
}

void heard(const HeardMessage& message, void* userdata) {
  const LongNames& names = *static_cast<LongNames*>(userdata);
  MessageReader reader{message.bytes};
  const MessageHead head = *read_message_head(reader);
  const bool is_probe = head.authorities > 0;  // RFC 6762 section 8.1: what it proposes stands there
  for (unsigned i = 0; i < head.questions; ++i) {
    const std::optional<Question> question = read_question(reader);
    if (!question) {
      return;
    }
    answer(names, *question, is_probe);
  }
}

void note_name(Server& server, const AvahiKey& key, Serial publication) {
  if (server.long_names.empty()) {
    group_ear_listen(server.group_ear, server.interface_index, {Heeds::questions, heard, nullptr, &server.long_names});
  }
  server.long_names.emplace(fold_case(key.name), LongNamed{publication, key.type});
}

void forget_name(LongNames& names, const std::string& name, Serial publication) {
  const auto [begin, end] = names.equal_range(fold_case(name));
  for (auto record = begin; record != end;) {
    record = record->second.publication == publication ? names.erase(record) : std::next(record);
  }
}

}  // namespace

void long_names_note(const Publication& publication) {
  for (const PublishedRecord& published : publication.records) {
    if (is_long(published.record->key->name)) {
      note_name(*publication.server, *published.record->key, publication.serial);
    }
  }
}

void long_names_forget(const Publication& publication) {
  Server& server = *publication.server;
  if (server.long_names.empty()) {
    return;
  }
  for (const PublishedRecord& published : publication.records) {
    forget_name(server.long_names, published.record->key->name, publication.serial);
  }
  if (server.long_names.empty()) {
    group_ear_leave(server.group_ear, &server.long_names);
  }
}

}  // namespace dnssd
