// SPDX-License-Identifier: MIT
// Lifecycle of a publication:
//   1. publication_new and publication_start; those that are probed for wait in their server's queue for pacing.
//   2. publication_commit hands it to Avahi, which reports a state; once its code has returned, publication_settle
//      announces what is established and tells the holders.
//   3. After a conflict it is refused: its group is freed at once and the holders leave it.
//   4. When the last holder has left, the group is freed and the goodbye noted, to be sent when the library is left.
#include "dnssd/publications.h"

#include <avahi-common/error.h>

#include <algorithm>

#include "dnssd/announcer.h"
#include "dnssd/crowd.h"
#include "dnssd/long_names.h"
#include "dnssd/operations.h"
#include "dnssd/pacing.h"
#include "dnssd/references.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

void drop_records(Publication& publication) {
  crowd_answers_remove(*publication.server, publication);
  for (const PublishedRecord& published : publication.records) {
    own_records_remove(publication.server->own_records, *published.record);
    avahi_record_unref(published.record);
  }
  publication.records.clear();
}

void free_group(Publication& publication) {
  if (publication.group != nullptr) {
    avahi_s_entry_group_free(publication.group);
  }
  publication.group = nullptr;
}

// Out of the table first: two that replace each other (a host that took an address again) must not erase each other twice.
void erase(Publication& publication) {
  const auto erased = gEngine->publications.extract(publication.serial);
  withdraw_replaced(publication);
  free_group(publication);
  publication_unshare(publication);
  long_names_forget(publication);
  drop_records(publication);
  Server& server = *publication.server;
  --server.publications;
  crowd_review(server);
  server_review_idle(server);
}

// Whether others may have it in memory: it is answered for, or has been announced and is probed for anew.
bool may_be_known(const Publication& publication) {
  return publication.stage == Stage::established || (publication.stage != Stage::refused && publication.announced_at != 0);
}

void withdraw(Publication& publication) {
  if (may_be_known(publication)) {
    say_goodbye(publication);
  }
  erase(publication);
}

void report(Publication& publication, AvahiEntryGroupState state) {
  publication.reported = state;
  gEngine->changed_publications.push_back(publication.serial);
}

// `more_flags` are added to each record's own.
int add_records(const Publication& publication, int more_flags) {
  const Server& server = *publication.server;
  for (const PublishedRecord& published : publication.records) {
    const auto flags = static_cast<AvahiPublishFlags>(published.flags | more_flags | AVAHI_PUBLISH_NO_ANNOUNCE);
    const int error = avahi_server_add(server.avahi, publication.group, static_cast<AvahiIfIndex>(server.interface_index),
                                       AVAHI_PROTO_UNSPEC, flags, published.record);
    if (error < 0) {
      return error;
    }
  }
  return AVAHI_OK;
}

bool is_unique(const Publication& publication) {
  return std::any_of(publication.records.begin(), publication.records.end(),
                     [](const PublishedRecord& published) { return (published.flags & AVAHI_PUBLISH_UNIQUE) != 0; });
}

bool is_to_be_probed_for(const Publication& publication) { return is_unique(publication) && !publication.has_name; }

void group_changed(AvahiServer*, AvahiSEntryGroup*, AvahiEntryGroupState, void*);

// A record of another host that contradicts one of ours makes Avahi begin anew with ours (RFC 6762 section 9), which is to
// probe for it, unless it was added without probes: then it would put up with the other. So what is ours already is added
// without them and, once it is established, marked as a record to probe for. An update with the same data does no more.
int defend(const Publication& publication) { return add_records(publication, AVAHI_PUBLISH_UPDATE); }

int hand_to_avahi(Publication& publication) {
  publication.group = avahi_s_entry_group_new(publication.server->avahi, group_changed, &publication);
  if (publication.group == nullptr) {
    return AVAHI_ERR_NO_MEMORY;
  }
  int error = add_records(publication, publication.has_name ? AVAHI_PUBLISH_NO_PROBE : 0);
  if (error >= 0) {
    error = avahi_s_entry_group_commit(publication.group);
  }
  return error >= 0 && publication.has_name ? defend(publication) : error;
}

// Avahi goes on to announce what it has probed for, whatever the flags say, if the group is still there when it has called
// back. A new one, without probes, takes its place.
void take_over_from_probes(Publication& publication) {
  free_group(publication);
  publication.has_name = true;
  if (hand_to_avahi(publication) < 0) {
    report(publication, AVAHI_ENTRY_GROUP_FAILURE);
  }
}

// Runs inside Avahi's code, which lets go of a group that its callback has freed; all else is left to publication_settle.
void group_changed(AvahiServer*, AvahiSEntryGroup*, AvahiEntryGroupState state, void* userdata) {
  Publication& publication = *static_cast<Publication*>(userdata);
  if (state == AVAHI_ENTRY_GROUP_ESTABLISHED && is_to_be_probed_for(publication)) {
    take_over_from_probes(publication);
  } else {
    report(publication, state);
  }
}

void refuse(Publication& publication) {
  publication.stage = Stage::refused;
  free_group(publication);
  publication_unshare(publication);
  withdraw_replaced(publication);
}

void tell(Serial holder, Publication& publication) {
  Operation* operation = operation_find(holder);
  if (operation == nullptr) {
    return;
  }
  if (std::holds_alternative<Registration>(operation->part)) {
    registration_changed(*operation, publication);
  }
  if (std::holds_alternative<Record>(operation->part)) {
    record_changed(*operation, publication);
  }
}

}  // namespace

Publication* publication_new(Server& server, Serial holder, const std::string& key, std::vector<PublishedRecord>&& records) {
  static Serial last = 0;
  auto owned = std::make_unique<Publication>();
  Publication* publication = owned.get();
  publication->serial = ++last;
  publication->server = &server;
  publication->key = key;
  publication->records = std::move(records);
  publication->holders.push_back(holder);
  crowd_answers_add(server, *publication);
  for (const PublishedRecord& published : publication->records) {
    if (own_records_add(server.own_records, *published.record)) {
      server.announcer.published_again_at = monotonic_now();
    }
  }
  ++server.publications;
  crowd_review(server);
  server.shared[key] = publication;
  long_names_note(*publication);
  gEngine->publications.emplace(publication->serial, std::move(owned));
  return publication;
}

void publication_unshare(Publication& publication) {
  if (publication.key.empty()) {
    return;
  }
  publication.server->shared.erase(publication.key);
  publication.key.clear();
}

void publication_share_anew(Publication& publication, const std::string& key) {
  publication_unshare(publication);
  if (publication.server->shared.try_emplace(key, &publication).second) {
    publication.key = key;
  }
}

Publication* publication_find_shared(const Server& server, const std::string& key) {
  const auto found = server.shared.find(key);
  return found == server.shared.end() ? nullptr : found->second;
}

Publication* publication_find(Serial serial) {
  const auto found = gEngine->publications.find(serial);
  return found == gEngine->publications.end() ? nullptr : found->second.get();
}

void publication_start(Publication& publication) {
  if (is_to_be_probed_for(publication)) {
    pacing_commit(publication);
  } else {
    publication_commit(publication);
  }
}

void publication_join(Publication& publication, Serial holder) {
  const bool was_superseded = publication.holders.empty();
  publication.holders.push_back(holder);
  if (was_superseded && publication.stage == Stage::established && publication.announcements_left > 0) {
    announce(publication);
  }
}

void publication_release(Publication& publication, Serial holder) {
  std::erase(publication.holders, holder);
  if (publication.holders.empty()) {
    withdraw(publication);
  }
}

void publication_forsake(Publication& publication, Serial holder) {
  std::erase(publication.holders, holder);
  if (publication.holders.empty()) {
    erase(publication);
  }
}

void publication_replace(Publication& from, Publication& to, Serial holder) {
  std::erase(from.holders, holder);
  if (!from.holders.empty()) {
    return;
  }
  if (is_announced(to)) {
    withdraw(from);
    return;
  }
  to.replaces.push_back(from.serial);
  if (is_announced(from)) {
    return;
  }
  // It takes over the time too, lest one that changes all the while were never announced.
  to.announce_by = from.announce_at;
  if (to.stage == Stage::established) {
    announce(to);
  }
}

void withdraw_replaced(Publication& publication) {
  std::vector<Serial> replaced;
  replaced.swap(publication.replaces);
  for (const Serial serial : replaced) {
    Publication* old = publication_find(serial);
    if (old != nullptr && old->holders.empty()) {
      withdraw(*old);
    }
  }
}

void publication_commit(Publication& publication) {
  if (publication.holders.empty()) {
    erase(publication);
    return;
  }
  publication.stage = Stage::committed;
  const int error = hand_to_avahi(publication);
  if (error < 0) {
    report(publication, error == AVAHI_ERR_COLLISION ? AVAHI_ENTRY_GROUP_COLLISION : AVAHI_ENTRY_GROUP_FAILURE);
  }
}

void publication_begin_again(Publication& publication) {
  if (publication.stage != Stage::committed && publication.stage != Stage::established) {
    return;
  }
  if (!is_unique(publication)) {
    if (publication.stage == Stage::established) {
      announce(publication);
    }
    return;
  }
  free_group(publication);
  publication.has_name = false;
  publication.announcements_left = 0;
  publication.stage = Stage::waiting;
  publication.reported = AVAHI_ENTRY_GROUP_UNCOMMITED;  // of the group that is gone
  pacing_commit(publication);
}

void publications_probe_again() {
  std::vector<Serial> probed_for;
  for (const auto& [serial, publication] : gEngine->publications) {
    if (publication->stage == Stage::committed) {
      probed_for.push_back(serial);
    }
  }
  for (const Serial serial : probed_for) {
    Publication* publication = publication_find(serial);
    if (publication != nullptr) {
      publication_begin_again(*publication);
    }
  }
}

void publications_say_goodbye() {
  for (const auto& [serial, publication] : gEngine->publications) {
    if (may_be_known(*publication)) {
      say_goodbye(*publication);
    }
  }
}

void publications_discard() {
  for (const auto& [serial, publication] : gEngine->publications) {
    long_names_forget(*publication);
    drop_records(*publication);
  }
  gEngine->publications.clear();
}

void publication_settle(Serial serial) {
  Publication* publication = publication_find(serial);
  if (publication == nullptr || publication->stage == Stage::refused) {
    return;
  }
  if (publication->reported == AVAHI_ENTRY_GROUP_ESTABLISHED) {
    publication->stage = Stage::established;
    if (publication->announcements_left == 0) {
      announce(*publication);
    }
  } else if (publication->reported == AVAHI_ENTRY_GROUP_COLLISION || publication->reported == AVAHI_ENTRY_GROUP_FAILURE) {
    refuse(*publication);
  } else {
    return;
  }
  const std::vector<Serial> holders = publication->holders;
  for (const Serial holder : holders) {
    if ((publication = publication_find(serial)) == nullptr) {
      return;
    }
    tell(holder, *publication);
  }
}

}  // namespace dnssd
