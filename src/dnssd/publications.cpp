// Lifecycle of a publication:
//   1. publication_new and publication_start put it in its server's queue; pacing calls publication_commit.
//   2. Avahi reports a state; once its code has returned, publication_settle tells the holders.
//   3. After a conflict it is refused: its group is freed at once and the holders leave it.
//   4. When the last holder has left, pacing calls publication_leave: the group is freed, which sends the goodbye. Until
//      then Avahi goes on answering for it, and a new holder may still join.
#include "dnssd/publications.h"

#include <avahi-common/error.h>

#include <algorithm>

#include "dnssd/operations.h"
#include "dnssd/pacing.h"
#include "dnssd/references.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

void drop_records(Publication& publication) {
  for (const PublishedRecord& published : publication.records) avahi_record_unref(published.record);
  publication.records.clear();
  publication.records.shrink_to_fit();
}

void unshare(Publication& publication) {
  if (publication.key.empty()) return;
  publication.server->shared.erase(publication.key);
  publication.key.clear();
}

void free_group(Publication& publication) {
  if (publication.group != nullptr) avahi_s_entry_group_free(publication.group);
  publication.group = nullptr;
}

void withdraw_replaced(Publication& publication) {
  std::vector<Serial> replaced;
  replaced.swap(publication.replaces);
  for (const Serial serial : replaced) {
    Publication* old = publication_find(serial);
    if (old != nullptr && old->holders.empty()) pacing_withdraw(*old);
  }
}

void erase(Publication& publication) {
  withdraw_replaced(publication);
  free_group(publication);
  unshare(publication);
  drop_records(publication);
  Server& server = *publication.server;
  --server.publications;
  gEngine->publications.erase(publication.serial);
  server_review_idle(server);
}

void report(Publication& publication, AvahiEntryGroupState state) {
  publication.reported = state;
  gEngine->changed_publications.push_back(publication.serial);
}

// Runs inside Avahi's code: only notes what happened.
void group_changed(AvahiServer*, AvahiSEntryGroup*, AvahiEntryGroupState state, void* userdata) {
  report(*static_cast<Publication*>(userdata), state);
}

int add_records(Publication& publication) {
  const Server& server = *publication.server;
  for (const PublishedRecord& published : publication.records) {
    const int error = avahi_server_add(server.avahi, publication.group, static_cast<AvahiIfIndex>(server.interface_index),
                                       AVAHI_PROTO_UNSPEC, published.flags, published.record);
    if (error < 0) return error;
  }
  return AVAHI_OK;
}

// Withdraws at once what still waits to be withdrawn under the same unique name. False when nothing does.
bool make_room_for(const Publication& publication) {
  std::vector<Publication*> namesakes;
  for (const Serial serial : publication.server->pacing.leaving) {
    Publication* leaving = publication_find(serial);
    if (leaving != nullptr && leaving->holders.empty() && leaving->unique_name == publication.unique_name) {
      namesakes.push_back(leaving);
    }
  }
  std::sort(namesakes.begin(), namesakes.end());
  namesakes.erase(std::unique(namesakes.begin(), namesakes.end()), namesakes.end());
  for (Publication* namesake : namesakes) erase(*namesake);
  return !namesakes.empty();
}

int try_commit(Publication& publication) {
  publication.group = avahi_s_entry_group_new(publication.server->avahi, group_changed, &publication);
  if (publication.group == nullptr) return AVAHI_ERR_NO_MEMORY;
  const int error = add_records(publication);
  if (error < 0) return error;
  return avahi_s_entry_group_commit(publication.group);
}

void refuse(Publication& publication) {
  publication.stage = Stage::refused;
  free_group(publication);
  unshare(publication);
}

void tell(Serial holder, Publication& publication) {
  Operation* operation = operation_find(holder);
  if (operation == nullptr) return;
  if (std::holds_alternative<Registration>(operation->part)) registration_changed(*operation, publication);
  if (std::holds_alternative<Record>(operation->part)) record_changed(*operation, publication);
}

}  // namespace

Publication* publication_new(Server& server, Serial holder, std::vector<PublishedRecord>&& records) {
  static Serial last = 0;
  auto owned = std::make_unique<Publication>();
  Publication* publication = owned.get();
  publication->serial = ++last;
  publication->server = &server;
  publication->size = static_cast<unsigned>(records.size());
  publication->records = std::move(records);
  publication->holders.push_back(holder);
  ++server.publications;
  gEngine->publications.emplace(publication->serial, std::move(owned));
  return publication;
}

void publication_share(Publication& publication, const std::string& key) {
  publication.key = key;
  publication.server->shared[key] = &publication;
}

Publication* publication_find_shared(const Server& server, const std::string& key) {
  const auto found = server.shared.find(key);
  return found == server.shared.end() ? nullptr : found->second;
}

Publication* publication_find(Serial serial) {
  const auto found = gEngine->publications.find(serial);
  return found == gEngine->publications.end() ? nullptr : found->second.get();
}

void publication_start(Publication& publication) { pacing_commit(publication); }

void publication_join(Publication& publication, Serial holder) { publication.holders.push_back(holder); }

void publication_release(Publication& publication, Serial holder) {
  std::erase(publication.holders, holder);
  if (!publication.holders.empty()) return;
  if (publication.group == nullptr) {
    erase(publication);
  } else {
    pacing_withdraw(publication);
  }
}

void publication_replace(Publication& from, Publication& to, Serial holder) {
  const bool is_committed = to.stage != Stage::waiting;
  if (is_committed) {
    publication_release(from, holder);
    return;
  }
  std::erase(from.holders, holder);
  if (from.holders.empty()) to.replaces.push_back(from.serial);
}

void publication_commit(Publication& publication) {
  if (publication.holders.empty()) {
    erase(publication);
    return;
  }
  int error = try_commit(publication);
  if (error == AVAHI_ERR_COLLISION && !publication.unique_name.empty() && make_room_for(publication)) {
    free_group(publication);
    error = try_commit(publication);
  }
  drop_records(publication);
  publication.stage = Stage::committed;
  if (error < 0) report(publication, error == AVAHI_ERR_COLLISION ? AVAHI_ENTRY_GROUP_COLLISION : AVAHI_ENTRY_GROUP_FAILURE);
  withdraw_replaced(publication);
}

void publication_leave(Publication& publication) {
  if (publication.holders.empty()) erase(publication);
}

void publications_discard() {
  for (const auto& [serial, publication] : gEngine->publications) drop_records(*publication);
  gEngine->publications.clear();
}

void publication_settle(Serial serial) {
  Publication* publication = publication_find(serial);
  if (publication == nullptr || publication->stage == Stage::refused) return;
  if (publication->reported == AVAHI_ENTRY_GROUP_ESTABLISHED) {
    publication->stage = Stage::established;
  } else if (publication->reported == AVAHI_ENTRY_GROUP_COLLISION || publication->reported == AVAHI_ENTRY_GROUP_FAILURE) {
    refuse(*publication);
  } else {
    return;
  }
  const std::vector<Serial> holders = publication->holders;
  for (const Serial holder : holders) {
    if ((publication = publication_find(serial)) == nullptr) return;
    tell(holder, *publication);
  }
}

}  // namespace dnssd
