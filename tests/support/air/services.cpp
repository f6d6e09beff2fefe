// SPDX-License-Identifier: MIT
#include "services.h"

#include <algorithm>

namespace air {
namespace {

void review(Services& services, const std::string& name, double at) {
  Service& service = services.by_name[name];
  if (!service.listed || !service.txt || service.host.empty() || is_there(service))
    return;
  if (!services.hosts[service.host]) {
    services.waiting[service.host].push_back(name);
    return;
  }
  if (service.there_at > 0) {
    ++service.absences;
    service.longest_absence = std::max(service.longest_absence, at - service.gone_at);
    service.absent += at - service.gone_at;
  }
  service.there_at = at;
  services.changed_at = at;
  ++services.there;
}

// The service cannot be used any longer, whatever else of it is known.
void lose(Services& services, const std::string& name, double at) {
  Service& service = services.by_name[name];
  if (!is_there(service))
    return;
  --services.there;
  service.gone_at = at;
  services.changed_at = at;
}

void set_listed(Services& services, const Record& record, double at) {
  const std::string name = folded(record.target);
  Service& service = services.by_name[name];
  services.labels.try_emplace(name, first_label(record.target));
  const bool listed = record.ttl > 0;
  if (service.listed != listed)
    services.listed += listed ? 1 : -1;
  service.listed = listed;
  if (listed)
    return review(services, name, at);
  if (services.grace > 0)
    return lose(services, name, at);
  if (is_there(service))
    --services.there;
  service.gone_at = at;
  service.txt = false;
  service.host.clear();
  services.changed_at = at;
}

void set_address(Services& services, const Record& record, double at) {
  services.hosts[record.name] = record.ttl > 0;
  const auto waiting = services.waiting.find(record.name);
  if (record.ttl == 0 || waiting == services.waiting.end())
    return;
  const std::vector<std::string> names = std::move(waiting->second);
  services.waiting.erase(waiting);
  for (const std::string& name : names)
    review(services, name, at);
}

void note(Services& services, const Record& record, double at) {
  switch (record.type) {
    case kTypePtr:
      // A pointer to a service type, or from an address, lists no service.
      if (record.target.find("\x09_services\x07_dns-sd") == std::string::npos && record.name[1] == '_' &&
          record.name.find("\x09_services") == std::string::npos) {
        set_listed(services, record, at);
      }
      return;
    case kTypeSrv:
      services.by_name[record.name].host = record.ttl > 0 ? folded(record.target) : "";
      return review(services, record.name, at);
    case kTypeTxt:
      services.by_name[record.name].txt = record.ttl > 0;
      return review(services, record.name, at);
    case kTypeA:
    case kTypeAaaa:
      return set_address(services, record, at);
    default:
      return;
  }
}

// --- With --grace: what was taken back is forgotten later

// Names in rdata may be compressed in one packet and not in another.
std::string goodbye_key(const Record& record) {
  const std::string key = record.name + static_cast<char>(record.type);
  if (record.type == kTypePtr)
    return key + folded(record.target);
  return key + (record.type == kTypeSrv ? record.rdata.substr(0, 6) + folded(record.target) : record.rdata);
}

bool is_of_service(const Record& record) {
  return record.type == kTypePtr || record.type == kTypeSrv || record.type == kTypeTxt || record.type == kTypeA ||
         record.type == kTypeAaaa;
}

// The records of the host `name`, and with them its services, follow from the addresses that it still has.
void forget_address(Services& services, const Record& record, double at) {
  auto& left = services.addresses[record.name];
  left.erase(record.rdata);
  if (!left.empty())
    return;
  services.hosts[record.name] = false;
  for (const std::string& name : services.instances_on[record.name]) {
    lose(services, name, at);
    services.waiting[record.name].push_back(name);
  }
}

void forget(Services& services, const Record& record, double at) {
  if (record.type == kTypeA || record.type == kTypeAaaa)
    return forget_address(services, record, at);
  if (record.type == kTypeSrv || record.type == kTypeTxt)
    lose(services, record.name, at);
  note(services, record, at);
}

void note_with_grace(Services& services, const Record& record, double at) {
  if (!is_of_service(record))
    return;
  std::string key = goodbye_key(record);
  if (record.ttl == 0) {
    services.taken_back[key] = at + services.grace;
    services.goodbyes.push_back({at + services.grace, std::move(key), record});
    return;
  }
  services.taken_back.erase(key);
  if (record.type == kTypeA || record.type == kTypeAaaa)
    services.addresses[record.name].insert(record.rdata);
  if (record.type == kTypeSrv)
    services.instances_on[folded(record.target)].insert(record.name);
  note(services, record, at);
}

}  // namespace

void forget_what_is_due(Services& services, double at) {
  while (!services.goodbyes.empty() && services.goodbyes.front().due <= at) {
    const Goodbye goodbye = std::move(services.goodbyes.front());
    services.goodbyes.pop_front();
    const auto entry = services.taken_back.find(goodbye.key);
    if (entry == services.taken_back.end() || entry->second > goodbye.due)
      continue;
    services.taken_back.erase(entry);
    forget(services, goodbye.record, goodbye.due);
  }
}

void note_record(Services& services, const Record& record, double at) {
  if (services.grace > 0) {
    note_with_grace(services, record, at);
  } else {
    note(services, record, at);
  }
}

}  // namespace air
