// SPDX-License-Identifier: MIT
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
  established,  // announced, and answered for
  refused,      // another host has the name, or Avahi refused the records
};

// Lives from publication_new until its last holder has left.
struct Publication {
  Serial serial = 0;
  Server* server = nullptr;
  Stage stage = Stage::waiting;
  AvahiEntryGroupState reported = AVAHI_ENTRY_GROUP_UNCOMMITED;  // what Avahi said last
  std::string key;  // it is in the server's `shared` under it; empty: nobody can join it
  std::vector<PublishedRecord> records;
  AvahiSEntryGroup* group = nullptr;  // null before the commit and when refused
  bool has_name = false;              // its probes have succeeded, or those of what it replaces
  std::vector<Serial> holders;        // operations that want it
  std::vector<Serial> replaces;       // publications to withdraw with this one's first announcement
  std::int64_t announce_at = 0;       // monotonic, microseconds; the announcement that is due
  std::int64_t announced_at = 0;      // the same; the last announcement, 0: there has been none
  std::int64_t announce_by = 0;       // the same; the first announcement's latest time, 0: none is set
  unsigned announcements_left = 0;
};

// A new one with `holder`, joinable under `key`, not yet started. Takes over the references in `records`.
Publication* publication_new(Server& server, Serial holder, const std::string& key, std::vector<PublishedRecord>&& records);

// Lets nobody join it any more.
void publication_unshare(Publication& publication);

// Lets others join it under another key; if that is taken, nobody can any more.
void publication_share_anew(Publication& publication, const std::string& key);

// The live publication under `key`; null when there is none.
Publication* publication_find_shared(const Server& server, const std::string& key);

Publication* publication_find(Serial serial);

// Commits it: at once when nothing in it has to be probed for, else when its turn comes. Not to be called from Avahi's code
// (nor are the functions below).
void publication_start(Publication& publication);

void publication_join(Publication& publication, Serial holder);

// `holder` leaves; with the last one the publication is withdrawn, with its goodbye.
void publication_release(Publication& publication, Serial holder);

// The same without a goodbye, for records that another host turned out to have as well.
void publication_forsake(Publication& publication, Serial holder);

// `holder` goes over from `from` to `to`; if it was the last, `from` is withdrawn when `to` is announced, never before, and is
// not announced itself any more.
void publication_replace(Publication& from, Publication& to, Serial holder);

// Withdraws what `publication` was to replace.
void withdraw_replaced(Publication& publication);

// Pacing: its turn has come.
void publication_commit(Publication& publication);

// Its interface has come back: probes for its name, if it is one that is probed for, and announces it (RFC 6762 section 8).
void publication_begin_again(Publication& publication);

// The wall clock has been set back: has what Avahi is probing for, which would wait that long, probed for anew.
void publications_probe_again();

// Notes the goodbyes of every publication that others may have in memory, and frees all of them: the engine ends. The groups go with their
// servers.
void publications_say_goodbye();
void publications_discard();

// Tells the holders of a change of state that Avahi has reported.
void publication_settle(Serial serial);

}  // namespace dnssd
