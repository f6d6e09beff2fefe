// SPDX-License-Identifier: MIT
// air-announcer: thousands of devices on one link, each a host with one service. They announce themselves when told to,
// answer what is asked as RFC 6762 says, and say goodbye when told to.
//
//   air-announcer --interface NAME [--types _ipp._tcp,_smb._tcp] [--link NUMBER] [--addresses 4|6|46] [--txt BYTES]
//                 [--rescue 1] [--hosts COUNT]
//
// Device number N is "Device N" of type N modulo the number of types, at port 1000 + N modulo 60000 of host
// device-N.local, with the addresses 10.LINK.X.Y and fd00:LINK::N. Commands, one a line on standard input:
//
//   announce FIRST COUNT SECONDS   evenly spread over that time, and once more a second later; says, at the end of the
//                                  first round, "announced FIRST COUNT BEGIN END" (seconds of the real-time clock)
//   withdraw FIRST COUNT SECONDS [4|6]   goodbyes, over that protocol alone or over both; says
//                                  "withdrawn FIRST COUNT BEGIN END"
//   change FIRST COUNT SECONDS     new TXT data, announced as in the first line; says "changed FIRST COUNT BEGIN END"
//   move FIRST COUNT SECONDS       another IPv6 address for each host, announced likewise; says
//                                  "moved FIRST COUNT BEGIN END"
//   vanish FIRST COUNT             they fall silent; says "vanished FIRST COUNT"
//
// With --hosts the devices share so many hosts in turn, device-0 and so on: the first device of a host answers for its
// addresses, which are never taken back; nothing moves then.
//
// With --rescue a device says its records again when somebody else takes one of them back (RFC 6762 sections 6.6 and
// 10.1).
//
// New TXT data and new addresses bear the time at which they were first announced (stamps.h).
//
// What it does not do: probe (the names are known to be free), negative answers, unicast answers.
#include <limits>
#include <map>
#include <random>
#include <unordered_map>

#include "device.h"
#include "loop.h"
#include "packet.h"
#include "round.h"
#include "sockets.h"

namespace {

using air::Device;
using air::Round;
using air::Writer;

constexpr double kNever = std::numeric_limits<double>::infinity();
constexpr double kAnnouncementGap = 1.0;  // RFC 6762 section 8.3: at least two announcements, a second apart
constexpr double kRepeatGap = 1.0;        // RFC 6762 section 6: a record goes by multicast at most once a second
constexpr double kSharedDelayMin = 0.020, kSharedDelayMax = 0.120;        // RFC 6762 section 6
constexpr double kTruncatedDelayMin = 0.400, kTruncatedDelayMax = 0.500;  // RFC 6762 section 7.2

enum class Act { announce, withdraw, change, move };

// What a range of devices says, evenly spread.
struct Wave {
  Act act;
  long first, count, sent;
  double begin, seconds;
  int round;  // 1: said when it is over
  int only;   // 4 or 6: over that protocol alone
};

struct Town {
  air::Kind kind;
  std::unordered_map<std::string, std::size_t> type_index;           // folded
  std::unordered_map<std::string, long> instance_index, host_index;  // folded
  std::vector<Device> devices;
  std::vector<Wave> waves;
  std::map<std::string, Round> rounds[2];  // by the asker's address, per protocol
  std::vector<air::Socket> sockets;
  bool rescues = false;
  std::mt19937 random{1};  // only the delays that the RFC wants random
};

double random_between(Town& town, double low, double high) {
  return std::uniform_real_distribution<double>(low, high)(town.random);
}

void grow_to(Town& town, long count) {
  for (long number = static_cast<long>(town.devices.size()); number < count; ++number) {
    Device device = make_device(town.kind, number);
    town.instance_index[air::folded(device.instance)] = number;
    town.host_index.emplace(air::folded(device.host), number);
    town.devices.push_back(std::move(device));
  }
}

void send_on(Town& town, std::size_t protocol, Writer& writer) {
  if (writer.answers > 0)
    air::send_to_group(town.sockets[protocol], writer.finish());
}

void send_whole(Town& town, Device& device, bool goodbye, int only) {
  Writer writer(air::kResponse);
  add_pointer(town.kind, writer, device, goodbye);
  add_service(writer, device, &Writer::answer, goodbye);
  if (!goodbye || has_own_host(town.kind))
    add_addresses(writer, device, &Writer::answer, goodbye);
  for (std::size_t protocol = 0; protocol < town.sockets.size(); ++protocol) {
    if (only == (protocol == 0 ? 6 : 4))
      continue;
    send_on(town, protocol, writer);
    device.service_sent_at[protocol] = device.host_sent_at[protocol] = air::now();
  }
}

// Sends the changed TXT data or addresses alone. In the first round they are made new.
void send_changed(Town& town, long number, const Wave& wave) {
  Device& device = town.devices[static_cast<std::size_t>(number)];
  Writer writer(air::kResponse);
  if (wave.act == Act::change) {
    if (wave.round == 1)
      change_txt(town.kind, device, number, air::now());
    writer.answer(device.instance, air::kTypeTxt, air::kClassIn | air::kCacheFlush, air::kOtherTtl, device.txt);
  } else {
    if (wave.round == 1)
      change_address(device, air::now());
    add_addresses(writer, device, &Writer::answer, false);
  }
  for (std::size_t protocol = 0; protocol < town.sockets.size(); ++protocol)
    send_on(town, protocol, writer);
}

// --- Waves

double due_of(const Wave& wave) {
  return wave.begin + wave.seconds * static_cast<double>(wave.sent) / static_cast<double>(wave.count);
}

std::string times(const Wave& wave, const char* word) {
  char text[128];
  std::snprintf(text, sizeof text, "%s %ld %ld %.6f %.6f", word, wave.first, wave.count, wave.begin, air::now());
  return text;
}

const char* word_of(Act act) {
  switch (act) {
    case Act::announce:
      return "announced";
    case Act::withdraw:
      return "withdrawn";
    case Act::change:
      return "changed";
    case Act::move:
      return "moved";
  }
  return "";
}

void act_out(Town& town, long number, const Wave& wave) {
  Device& device = town.devices[static_cast<std::size_t>(number)];
  const bool whole = wave.act == Act::announce || wave.act == Act::withdraw;
  if (whole && wave.round == 1)
    device.live = wave.act == Act::announce;
  if (whole && (wave.round == 1 || device.live))
    send_whole(town, device, wave.act == Act::withdraw, wave.only);
  if (!whole && device.live)
    send_changed(town, number, wave);
}

// Sends what is due of the wave. True when it is over.
bool run_wave(Town& town, Wave& wave) {
  for (; wave.sent < wave.count && due_of(wave) <= air::now(); ++wave.sent)
    act_out(town, wave.first + wave.sent, wave);
  return wave.sent == wave.count;
}

void run_waves(Town& town) {
  for (std::size_t index = 0; index < town.waves.size();) {
    Wave& wave = town.waves[index];
    if (!run_wave(town, wave)) {
      ++index;
      continue;
    }
    const Wave done = wave;
    town.waves.erase(town.waves.begin() + static_cast<std::ptrdiff_t>(index));
    if (done.round == 1)
      air::say(times(done, word_of(done.act)));
    if (done.round == 1 && done.act != Act::withdraw) {
      town.waves.push_back({done.act, done.first, done.count, 0, done.begin + kAnnouncementGap, done.seconds, 2, 0});
    }
  }
}

// --- Answers

// One message under way: pointers first, then what belongs to them.
struct Batch {
  Writer writer{air::kResponse};
  std::vector<const Device*> devices;
  std::size_t room_used = 0;
};

void send_batch(Town& town, std::size_t protocol, Batch& batch) {
  for (const Device* device : batch.devices) {
    add_service(batch.writer, *device, &Writer::additional, false);
    add_addresses(batch.writer, *device, &Writer::additional, false);
  }
  send_on(town, protocol, batch.writer);
  batch = Batch();
}

// Everything of a type that was neither known nor said within the last second, in as few messages as it takes.
void answer_type(Town& town, std::size_t protocol, std::size_t type, const Round& round) {
  const double at = air::now();
  Batch batch;
  for (std::size_t number = type; number < town.devices.size(); number += town.kind.types.size()) {
    Device& device = town.devices[number];
    if (!device.live || at - device.service_sent_at[protocol] < kRepeatGap)
      continue;
    if (is_known(round, town.kind.types[type], air::kTypePtr, device.instance))
      continue;
    const std::size_t size = 2 * device.instance.size() + device.host.size() + device.txt.size() + 100;
    if (batch.room_used + size > air::kMessageRoom)
      send_batch(town, protocol, batch);
    add_pointer(town.kind, batch.writer, device, false);
    device.service_sent_at[protocol] = device.host_sent_at[protocol] = at;
    batch.devices.push_back(&device);
    batch.room_used += size;
  }
  send_batch(town, protocol, batch);
}

Device* live_device(Town& town, const std::unordered_map<std::string, long>& index, const std::string& name) {
  const auto found = index.find(name);
  if (found == index.end())
    return nullptr;
  Device& device = town.devices[static_cast<std::size_t>(found->second)];
  return device.live ? &device : nullptr;
}

// Each device answers for itself.
void answer_unique(Town& town, std::size_t protocol, const Round& round, const air::Question& question) {
  const double at = air::now();
  Writer writer(air::kResponse);
  Device* device = live_device(town, town.instance_index, question.name);
  if (device != nullptr && lacks_service(round, question, *device) &&
      at - device->service_sent_at[protocol] >= kRepeatGap) {
    device->service_sent_at[protocol] = at;
    add_service(writer, *device, &Writer::answer, false);
  }
  Device* host = live_device(town, town.host_index, question.name);
  if (host != nullptr && lacks_address(round, question, *host) && at - host->host_sent_at[protocol] >= kRepeatGap) {
    host->host_sent_at[protocol] = at;
    add_addresses(writer, *host, &Writer::answer, false);
  }
  send_on(town, protocol, writer);
}

void run_rounds(Town& town) {
  for (std::size_t protocol = 0; protocol < town.sockets.size(); ++protocol) {
    auto& rounds = town.rounds[protocol];
    for (auto it = rounds.begin(); it != rounds.end();) {
      if (it->second.due > air::now()) {
        ++it;
        continue;
      }
      const Round round = std::move(it->second);
      it = rounds.erase(it);
      for (const air::Question& question : round.questions)
        answer_unique(town, protocol, round, question);
      for (const std::size_t type : round.types)
        answer_type(town, protocol, type, round);
    }
  }
}

void handle_query(Town& town, std::size_t protocol, const std::string& source, const air::Message& message) {
  const auto [entry, is_new] = town.rounds[protocol].try_emplace(source);
  Round& round = entry->second;
  for (const air::Question& question : message.questions) {
    const auto type = town.type_index.find(question.name);
    if (type != town.type_index.end() && wants(question, air::kTypePtr)) {
      round.types.insert(type->second);
    } else if (town.instance_index.contains(question.name) || town.host_index.contains(question.name)) {
      round.questions.push_back(question);
    }
  }
  note_known(message, round);
  const bool more = (message.flags & air::kQueryTruncated) != 0;
  if (more) {
    round.due = air::now() + random_between(town, kTruncatedDelayMin, kTruncatedDelayMax);
  } else if (is_new) {
    round.due = air::now() + (round.types.empty() ? 0 : random_between(town, kSharedDelayMin, kSharedDelayMax));
  }
}

// What is taken back and is there all the same is said again, over the protocol over which it was taken back.
void rescue(Town& town, std::size_t protocol, const air::Message& message) {
  for (const air::Record& record : message.answers) {
    Device* device = nullptr;
    if (record.ttl == 0)
      device = live_device(town, town.instance_index,
                           air::folded(record.type == air::kTypePtr ? record.target : record.name));
    if (device != nullptr)
      send_whole(town, *device, false, protocol == 0 ? 4 : 6);
  }
}

void handle_packets(Town& town, std::size_t protocol) {
  static std::uint8_t buffer[65536];
  for (;;) {
    sockaddr_storage from{};
    socklen_t from_size = sizeof from;
    const ssize_t size = recvfrom(town.sockets[protocol].descriptor, buffer, sizeof buffer, 0,
                                  reinterpret_cast<sockaddr*>(&from), &from_size);
    if (size < 0)
      return;
    const auto message = air::read_message({buffer, static_cast<std::size_t>(size)});
    if (!message)
      continue;
    if ((message->flags & 0x8000) != 0) {
      if (town.rescues)
        rescue(town, protocol, *message);
      continue;
    }
    handle_query(town, protocol, std::string(reinterpret_cast<const char*>(&from), from_size), *message);
  }
}

// --- The loop

double next_due(const Town& town) {
  double due = kNever;
  for (const Wave& wave : town.waves)
    due = std::min(due, due_of(wave));
  for (const auto& rounds : town.rounds) {
    for (const auto& [key, round] : rounds)
      due = std::min(due, round.due);
  }
  return due;
}

void obey(Town& town, const std::string& line) {
  const std::vector<std::string> words = air::words_of(line);
  if (words.size() < 3)
    return air::say("error " + line);
  const long first = std::stol(words[1]), count = std::stol(words[2]);
  grow_to(town, first + count);
  if (words[0] == "vanish") {
    for (long number = first; number < first + count; ++number)
      town.devices[static_cast<std::size_t>(number)].live = false;
    return air::say("vanished " + words[1] + " " + words[2]);
  }
  static const std::map<std::string, Act> kActs{
      {"announce", Act::announce}, {"withdraw", Act::withdraw}, {"change", Act::change}, {"move", Act::move}};
  const auto act = kActs.find(words[0]);
  if (act == kActs.end())
    return air::say("error " + line);
  const double seconds = words.size() > 3 ? std::stod(words[3]) : 0;
  const int only = words.size() > 4 ? std::stoi(words[4]) : 0;
  town.waves.push_back({act->second, first, count, 0, air::now(), seconds, 1, only});
}

}  // namespace

int main(int argc, char** argv) {
  const air::Options options(argc, argv, {"interface", "types", "link", "addresses", "txt", "rescue", "hosts"});
  Town town;
  town.sockets = air::open_sockets(options.text("interface"));
  town.kind.addresses = options.text("addresses").empty() ? "46" : options.text("addresses");
  town.kind.link = std::to_string(options.number("link", 1));
  town.kind.txt_size = static_cast<std::size_t>(options.number("txt", 64));
  town.kind.hosts = options.number("hosts", 0);
  town.rescues = options.number("rescue", 0) != 0;
  for (const std::string& type : options.list("types")) {
    town.kind.types.push_back(air::make_dotted_name(type + ".local"));
    town.type_index[air::folded(town.kind.types.back())] = town.kind.types.size() - 1;
  }
  air::Loop loop;
  for (std::size_t protocol = 0; protocol < town.sockets.size(); ++protocol) {
    loop.watches.push_back({town.sockets[protocol].descriptor, [&town, protocol] { handle_packets(town, protocol); }});
  }
  loop.command = [&](const std::string& line) { obey(town, line); };
  loop.next_due = [&] { return next_due(town); };
  loop.due = [&] {
    run_waves(town);
    run_rounds(town);
  };
  air::say("ready");
  air::run(loop);
}
