// SPDX-License-Identifier: MIT
// Lifecycle of a list: the first lookup of its name makes it, and its timer does all that becomes due: newcomers are told, pointers end
// or grow old, questions are asked. Without followers it asks no more, and ends a while later.
#include "dnssd/pointers.h"

#include <avahi-common/malloc.h>

#include <algorithm>
#include <limits>
#include <optional>

#include "dnssd/lookups.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

constexpr std::int64_t kSecond = 1'000'000;  // microseconds
constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

// RFC 6762 sections 10.1 and 10.2: so long after its goodbye, or after it was superseded, a record goes.
constexpr std::int64_t kLastSecond = kSecond;

// A list that nobody follows stays this long, so that a caller that releases one operation and starts the next finds it.
constexpr std::int64_t kUnusedFor = 10 * kSecond;

// What becomes due within it is done together: all pointers are looked through for it.
constexpr std::int64_t kGather = 20'000;  // microseconds

constexpr std::array kProtocols{AVAHI_PROTO_INET, AVAHI_PROTO_INET6};

// --- Telling

void tell_newcomers(PointerList& list) {
  for (const AvahiProtocol protocol : kProtocols) {
    for (const auto& [target, pointer] : pointers_over(list, protocol)) {
      pointer_tell(list, list.newcomers, protocol, AVAHI_BROWSER_NEW, pointer);
    }
  }
  list.followers.insert(list.followers.end(), list.newcomers.begin(), list.newcomers.end());
  list.newcomers.clear();
}

// --- The timer

// Takes out, and tells of, the pointers of which `is_gone` says so.
template <typename IsGone>
void drop(PointerList& list, AvahiProtocol protocol, IsGone is_gone) {
  PointersByTarget& pointers = pointers_over(list, protocol);
  for (auto next = pointers.begin(); next != pointers.end();) {
    if (!is_gone(next->second)) {
      ++next;
      continue;
    }
    const Pointer gone = std::move(next->second);
    next = pointers.erase(next);
    pointer_tell(list, list.followers, protocol, AVAHI_BROWSER_REMOVE, gone);
  }
}

// RFC 6762 section 10.2: what was said more than a second before is no longer true.
void supersede(PointerList& list, AvahiProtocol protocol) {
  std::int64_t& at = list.superseded_at[static_cast<std::size_t>(protocol)];
  for (auto next = pointers_over(list, protocol).begin(); at != 0 && next != pointers_over(list, protocol).end(); ++next) {
    if (at - next->second.heard_at > kSecond) {
      pointer_end_soon(list, next->second, at);
    }
  }
  at = 0;
}

void review_pointers(PointerList& list, std::int64_t now) {
  list.due_at = kNever;
  for (const AvahiProtocol protocol : kProtocols) {
    supersede(list, protocol);
    drop(list, protocol, [now](const Pointer& pointer) { return pointer.ends_at <= now; });
    for (auto& [target, pointer] : pointers_over(list, protocol)) {
      if (pointer.due_at <= now) {
        ++pointer.asked;
        pointer.due_at = pointer_due(pointer);
        questions_want(list.questions, protocol, now);
      }
      list.due_at = std::min(list.due_at, pointer.due_at);
    }
  }
}

// Gives up what nobody has confirmed who was asked.
void judge_unanswered(PointerList& list, AvahiProtocol protocol, std::int64_t now) {
  AskedByOthers& others = list.questions.others[static_cast<std::size_t>(protocol)];
  if (others.judged_at == 0 || others.judged_at > now) {
    return;
  }
  drop(list, protocol, [&others](const Pointer& pointer) { return pointer.heard_at < others.first_at; });
  others.judged_at = 0;
  others.count = 0;
}

void free_list(PointerList& list) {
  poll_timer_free(list.timer);
  avahi_key_unref(list.key);
}

void timer_fired(AvahiTimeout*, void* userdata) {
  PointerList& list = *static_cast<PointerList*>(userdata);
  list.fires_at = 0;
  const std::int64_t now = monotonic_now();
  tell_newcomers(list);
  if (list.due_at <= now) {
    review_pointers(list, now);
  }
  for (const AvahiProtocol protocol : kProtocols) {
    judge_unanswered(list, protocol, now);
  }
  if (pointers_are_followed(list)) {
    questions_ask(*list.server, now);
  } else if (list.unused_until <= now) {
    free_list(list);
    list.server->pointers.erase(fold_case(name_to_avahi(list.name)));
    return;
  }
  pointers_set_timer(list);
}

// --- Followers

// What was said before there was a list is not in it: it has to be heard when it is said again.
void forget_repeats(Server& server) {
  for (Gate& gate : server.gates) {
    repeats_forget(gate.repeats);
  }
}

PointerList& list_of(Server& server, const Name& name) {
  const std::string text = name_to_avahi(name);
  std::unique_ptr<PointerList>& list = server.pointers[fold_case(text)];
  if (list == nullptr) {
    forget_repeats(server);
    list = std::make_unique<PointerList>();
    list->server = &server;
    list->name = name;
    list->key = avahi_key_new(text.c_str(), AVAHI_DNS_CLASS_IN, AVAHI_DNS_TYPE_PTR);
    list->due_at = kNever;
    list->timer = poll_timer_new(gEngine->poll, timer_fired, list.get());
  }
  return *list;
}

}  // namespace

bool pointers_are_followed(const PointerList& list) { return !list.followers.empty() || !list.newcomers.empty(); }

PointersByTarget& pointers_over(PointerList& list, AvahiProtocol protocol) {
  return list.pointers[static_cast<std::size_t>(protocol)];
}

AvahiRecord* pointer_record(const PointerList& list, const Pointer& pointer) {
  AvahiRecord* record = avahi_record_new(list.key, pointer.ttl);
  record->data.ptr.name = avahi_strdup(pointer.target.c_str());
  return record;
}

void pointer_tell(const PointerList& list, const std::vector<Lookup*>& lookups, AvahiProtocol protocol, AvahiBrowserEvent event,
                  const Pointer& pointer) {
  if (lookups.empty()) {
    return;
  }
  AvahiRecord* record = pointer_record(list, pointer);
  for (const Lookup* lookup : lookups) {
    lookup->callback(*lookup->operation, protocol, event, record);
  }
  avahi_record_unref(record);
}

void pointers_set_timer(PointerList& list) {
  std::int64_t at = list.due_at;
  at = std::min(at, pointers_are_followed(list) ? questions_due(list.questions) : list.unused_until);
  for (const AskedByOthers& others : list.questions.others) {
    at = std::min(at, others.judged_at != 0 ? others.judged_at : kNever);
  }
  const std::int64_t now = monotonic_now();
  at = list.newcomers.empty() ? std::max(at, now + kGather) : now + 1;
  // It is never put off: whoever says something again and again would keep everything else from its turn.
  if (list.fires_at == 0 || at < list.fires_at) {
    list.fires_at = at;
    poll_timer_start(list.timer, at - now);
  }
}

void pointer_make_due(PointerList& list, Pointer& pointer, std::int64_t at) {
  pointer.due_at = at;
  if (at < list.due_at) {
    list.due_at = at;
    pointers_set_timer(list);
  }
}

// What is to go in a second, whoever is asked.
void pointer_end_soon(PointerList& list, Pointer& pointer, std::int64_t now) {
  if (pointer.ends_at > now + kLastSecond) {
    pointer.ends_at = now + kLastSecond;
    pointer_make_due(list, pointer, pointer.ends_at);
  }
}

void pointers_follow(Lookup& lookup, const Name& name) {
  PointerList& list = list_of(*lookup.server, name);
  lookup.pointers = &list;
  list.newcomers.push_back(&lookup);
  questions_begin(list, monotonic_now());
  pointers_set_timer(list);
}

void pointers_leave(Lookup& lookup) {
  PointerList* list = lookup.pointers;
  if (list == nullptr) {
    return;
  }
  std::erase(list->followers, &lookup);
  std::erase(list->newcomers, &lookup);
  lookup.pointers = nullptr;
  if (!pointers_are_followed(*list)) {
    list->unused_until = monotonic_now() + kUnusedFor;
    pointers_set_timer(*list);
  }
}

bool pointers_are_kept(const Server& server, const char* name) { return server.pointers.contains(fold_case(name)); }

void pointers_forget(Server& server, unsigned protocols) {
  for (const auto& [name, list] : server.pointers) {
    for (const AvahiProtocol protocol : kProtocols) {
      if ((protocols & 1u << protocol) != 0) {
        drop(*list, protocol, [](const Pointer&) { return true; });
      }
    }
  }
}

void pointers_ask_anew(Server& server) {
  for (const auto& [name, list] : server.pointers) {
    if (pointers_are_followed(*list)) {
      questions_begin(*list, monotonic_now());
      pointers_set_timer(*list);
    }
  }
}

void pointers_close(Server& server) {
  for (const auto& [name, list] : server.pointers) {
    free_list(*list);
  }
  server.pointers.clear();
}

}  // namespace dnssd
