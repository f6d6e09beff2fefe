// SPDX-License-Identifier: MIT
// The services of a link as its packets tell of them. A service is there once its PTR, its SRV, its TXT and an address
// of its host have been seen with a TTL above 0. Times are those of the packets.
#pragma once

#include <deque>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "packet.h"

namespace air {

// What has been seen of one instance.
struct Service {
  bool listed = false, txt = false;
  std::string host = {};  // folded target of its SRV; empty: none
  double there_at = 0, gone_at = 0;
  long absences = 0;  // how often it was gone and came back
  double longest_absence = 0, absent = 0;
};

inline bool is_there(const Service& service) { return service.there_at > service.gone_at; }

// A record that was taken back and is forgotten at `due`, unless it is said again before.
struct Goodbye {
  double due;
  std::string key;
  Record record;
};

struct Services {
  // Seconds in which a record that was taken back may be said again; any record that a service needs counts then. 0: a
  // service is gone at the goodbye of its PTR, whatever becomes of the others.
  double grace = 0;
  std::unordered_map<std::string, Service> by_name = {};     // by the folded instance name
  std::unordered_map<std::string, std::string> labels = {};  // its first label as written
  std::unordered_map<std::string, bool> hosts = {};          // has an address; folded
  // host without an address: the instances on it
  std::unordered_map<std::string, std::vector<std::string>> waiting = {};
  long there = 0, listed = 0;
  double changed_at = 0;
  // With a grace only:
  std::deque<Goodbye> goodbyes = {};
  std::unordered_map<std::string, double> taken_back = {};                             // a record's key to its due time
  std::unordered_map<std::string, std::unordered_set<std::string>> addresses = {};     // of each host, by rdata
  std::unordered_map<std::string, std::unordered_set<std::string>> instances_on = {};  // host: the instances on it
};

// Takes in one record that was seen at that time.
void note_record(Services& services, const Record& record, double at);

// Forgets what was taken back long enough ago; before anything is noted or read.
void forget_what_is_due(Services& services, double at);

}  // namespace air
