// SPDX-License-Identifier: MIT
// What the packets of a link say of the pointers that are followed there. Nothing in the bytes is trusted.
#include <avahi-common/domain.h>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "dnssd/message_reader.h"
#include "dnssd/pointer_records.h"
#include "dnssd/pointers.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

constexpr std::int64_t kSecond = 1'000'000;  // microseconds

// Of one name, over one protocol: four times as many as any browser takes. Beyond it, those that are known stay and further ones are
// left out, until there is room and they are announced again.
constexpr std::size_t kPointersMax = 8192;

// And of all names of a server together, over one protocol: the longest ones, of which each takes 2 kB, thus take some 30 MB.
constexpr std::size_t kPointersOfServerMax = 16'384;

PointerList* find_list(const Server& server, const Name& name) {
  const auto found = server.pointers.find(fold_case(name_to_avahi(name)));
  return found == server.pointers.end() ? nullptr : found->second.get();
}

bool is_room(PointerList& list, AvahiProtocol protocol) {
  std::size_t count = 0;
  for (const auto& [name, other] : list.server->pointers) {
    count += pointers_over(*other, protocol).size();
  }
  return count < kPointersOfServerMax && pointers_over(list, protocol).size() < kPointersMax;
}

void note_live(PointerList& list, AvahiProtocol protocol, std::string&& target, std::uint32_t ttl, std::int64_t now) {
  PointersByTarget& pointers = pointers_over(list, protocol);
  const std::string key = fold_case(target);
  auto found = pointers.find(key);
  const bool is_new = found == pointers.end();
  if (is_new) {
    if (!is_room(list, protocol)) {
      return;
    }
    found = pointers.emplace(key, Pointer{std::move(target)}).first;
  }
  Pointer& pointer = found->second;
  pointer.ttl = ttl;
  pointer.heard_at = now;
  pointer.ends_at = now + ttl * kSecond;
  pointer.asked = 0;
  pointer_make_due(list, pointer, pointer_due(pointer));
  if (is_new) {
    pointer_tell(list, list.followers, protocol, AVAHI_BROWSER_NEW, pointer);
  }
}

void note_goodbye(PointerList& list, AvahiProtocol protocol, const std::string& target, std::int64_t now) {
  const auto found = pointers_over(list, protocol).find(fold_case(target));
  if (found != pointers_over(list, protocol).end()) {
    pointer_end_soon(list, found->second, now);
  }
}

// All pointers are looked through for it: soon, once for all that say so until then.
void supersede_soon(PointerList& list, AvahiProtocol protocol, std::int64_t now) {
  list.superseded_at[static_cast<std::size_t>(protocol)] = now;
  list.due_at = std::min(list.due_at, now);
  pointers_set_timer(list);
}

std::optional<Name> name_at(std::span<const std::uint8_t> message, std::size_t at) {
  MessageReader reader{message, at};
  return read_name(reader);
}

// In Avahi's text. Nothing for what is not UTF-8, as names have to be (RFC 6763 section 4.1.1).
std::optional<std::string> target_at(std::span<const std::uint8_t> message, std::size_t at) {
  const std::optional<Name> name = name_at(message, at);
  std::optional<std::string> text = name ? std::optional(name_to_avahi(*name)) : std::nullopt;
  return text && avahi_is_valid_domain_name(text->c_str()) != 0 ? std::move(text) : std::nullopt;
}

// The lists of whose pointers the next `count` records say some, with repeats. Nothing when they are malformed.
std::optional<std::vector<const PointerList*>> lists_said_of(const Server& server, MessageReader& reader, unsigned count) {
  std::vector<const PointerList*> lists;
  for (unsigned i = 0; i < count; ++i) {
    const std::size_t owner_at = reader.at;
    const std::optional<RecordHead> head = pass_record_head(reader);
    if (!head) {
      return std::nullopt;
    }
    reader.at += head->length;
    const std::optional<Name> owner = head->rrtype == AVAHI_DNS_TYPE_PTR ? name_at(reader.message, owner_at) : std::nullopt;
    const PointerList* list = owner ? find_list(server, *owner) : nullptr;
    if (list != nullptr) {
      lists.push_back(list);
    }
  }
  return lists;
}

}  // namespace

void pointers_heard(Server& server, AvahiProtocol protocol, std::span<const std::uint8_t> message) {
  if (server.pointers.empty()) {
    return;
  }
  const std::int64_t now = monotonic_now();
  PointerRecords records = pointer_records_of(message);
  while (const std::optional<PointerRecord> record = next_pointer_record(records)) {
    const std::optional<Name> owner = name_at(message, record->owner_at);
    PointerList* list = owner ? find_list(server, *owner) : nullptr;
    std::optional<std::string> target = list != nullptr ? target_at(message, record->target_at) : std::nullopt;
    if (!target) {
      continue;
    }
    if (record->ttl == 0) {
      note_goodbye(*list, protocol, *target, now);
      continue;
    }
    note_live(*list, protocol, std::move(*target), record->ttl, now);
    if (record->is_unique) {
      supersede_soon(*list, protocol, now);
    }
  }
}

void pointers_asked(Server& server, AvahiProtocol protocol, std::span<const std::uint8_t> message) {
  MessageReader reader{message};
  const std::optional<MessageHead> head = read_message_head(reader);
  // RFC 6762 sections 18.3 and 18.11: others are not heeded by anybody. And of one that goes on elsewhere nobody can tell what is
  // left out of the answers.
  if (server.pointers.empty() || !head || (head->flags & (kResponseBit | kOpcodeAndRcodeBits | kTruncatedBit)) != 0) {
    return;
  }
  std::vector<std::pair<PointerList*, Question>> asked;
  for (unsigned i = 0; i < head->questions; ++i) {
    std::optional<Question> question = read_question(reader);
    if (!question) {
      return;
    }
    PointerList* list = find_list(server, question->name);
    if (list != nullptr) {
      asked.emplace_back(list, std::move(*question));
    }
  }
  const auto left_out = lists_said_of(server, reader, head->answers);
  for (const auto& [list, question] : asked) {
    if (left_out && std::ranges::find(*left_out, list) == left_out->end()) {
      questions_note(list->questions, protocol, question, monotonic_now());
      pointers_set_timer(*list);
    }
  }
}

void pointers_missed(Server& server) {
  for (const auto& [name, list] : server.pointers) {
    for (AskedByOthers& others : list->questions.others) {
      others.judged_at = 0;
      others.count = 0;
    }
  }
}

}  // namespace dnssd
