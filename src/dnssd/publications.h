// Records that are published together in one Avahi entry group, and who holds them.
#pragma once

#include "dnssd/dnssd.h"

namespace dnssd {

struct PublishedRecord {
  AvahiRecord* record = nullptr;  // one reference, owned
  AvahiPublishFlags flags{};
};

enum class Stage {
  waiting,      // not yet committed
  committed,    // Avahi probes
  established,  // announced
  refused,      // another host has the name, or Avahi refused the records
};

// Lives from publication_new until its last holder has left and it has been withdrawn.
struct Publication {
  Serial serial = 0;
  Server* server = nullptr;
  Stage stage = Stage::waiting;
  AvahiEntryGroupState reported = AVAHI_ENTRY_GROUP_UNCOMMITED;  // what Avahi said last
  std::string key;           // in the server's `shared` under it; empty: it has one holder for ever
  std::string unique_name;   // folded; the name that nobody else may have; empty: none
  std::vector<PublishedRecord> records;  // until committed; Avahi keeps them from then on
  unsigned size = 0;                     // records in it
  AvahiSEntryGroup* group = nullptr;     // null before the commit and when refused
  std::vector<Serial> holders;           // operations that want it
  std::vector<Serial> replaces;          // publications to withdraw as soon as this one is committed
};

// A new one with `holder`, not yet started. Takes over the references in `records`.
Publication* publication_new(Server& server, Serial holder, std::vector<PublishedRecord>&& records);

// Makes it joinable under `key`.
void publication_share(Publication& publication, const std::string& key);

// The live publication under `key`, one that is about to be withdrawn included; null when there is none.
Publication* publication_find_shared(const Server& server, const std::string& key);

Publication* publication_find(Serial serial);

// Commits it when its turn comes. Not to be called from Avahi's code (nor are the functions below).
void publication_start(Publication& publication);

void publication_join(Publication& publication, Serial holder);

// `holder` leaves; with the last one the publication is withdrawn when its turn comes.
void publication_release(Publication& publication, Serial holder);

// `holder` goes over from `from` to `to`; if it was the last, `from` is withdrawn once `to` has been committed, never before.
void publication_replace(Publication& from, Publication& to, Serial holder);

// Pacing's two steps: its turn has come.
void publication_commit(Publication& publication);
void publication_leave(Publication& publication);

// When the engine ends: frees all of them without a word to their holders. Their servers are gone already.
void publications_discard();

// Tells the holders of a change of state that Avahi has reported.
void publication_settle(Serial serial);

}  // namespace dnssd
