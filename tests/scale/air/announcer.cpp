// SPDX-License-Identifier: MIT
// air-announcer: thousands of devices on one link, each a host with one service. They announce themselves when told to, answer
// what is asked as RFC 6762 says, and say goodbye when told to.
//
//   air-announcer --interface NAME [--types _ipp._tcp,_smb._tcp] [--link NUMBER] [--addresses 4|6|46] [--txt BYTES]
//
// Device number N is "Device N" of type N modulo the number of types, at port 1000 + N modulo 60000 of host device-N.local, with
// the addresses 10.LINK.X.Y and fd00:LINK::N. Commands, one a line on standard input:
//
//   announce FIRST COUNT SECONDS   evenly spread over that time, and once more a second later; says, at the end of the first
//                                  round, "announced FIRST COUNT BEGIN END" (seconds of the real-time clock)
//   withdraw FIRST COUNT SECONDS   goodbyes; says "withdrawn FIRST COUNT BEGIN END"
//   vanish FIRST COUNT             they fall silent; says "vanished FIRST COUNT"
//
// What it does not do: probe (the names are known to be free), negative answers, unicast answers.
#include <arpa/inet.h>

#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <unordered_map>
#include <unordered_set>

#include "loop.h"
#include "packet.h"
#include "sockets.h"

namespace {

using air::Writer;

constexpr double kNever = std::numeric_limits<double>::infinity();
constexpr double kAnnouncementGap = 1.0;  // RFC 6762 section 8.3: at least two announcements, a second apart
constexpr double kRepeatGap = 1.0;        // RFC 6762 section 6: a record goes by multicast at most once a second
constexpr double kSharedDelayMin = 0.020, kSharedDelayMax = 0.120;        // RFC 6762 section 6
constexpr double kTruncatedDelayMin = 0.400, kTruncatedDelayMax = 0.500;  // RFC 6762 section 7.2

struct Device {
  std::size_t type = 0;
  std::string instance, host;     // names on the wire
  std::string srv, txt, a, aaaa;  // rdata; an address that it does not have is empty
  bool live = false;
  double service_sent_at[2] = {0, 0}, host_sent_at[2] = {0, 0};  // when its records last went out, by protocol
};

// Announcements or goodbyes of a range of devices that go out evenly spread.
struct Wave {
  bool goodbye;
  long first, count, sent;
  double begin, seconds;
  int round;  // 1: said when it is over
};

// What one asker wants and says it knows already; more of that may still be coming.
struct Round {
  double due = 0;
  std::unordered_set<std::size_t> types;  // all instances of these
  std::vector<air::Question> questions;   // for records that only one device has
  std::unordered_set<std::string> known;  // record_key of known answers
};

struct Town {
  std::vector<std::string> types;                                    // names on the wire
  std::unordered_map<std::string, std::size_t> type_index;           // folded
  std::unordered_map<std::string, long> instance_index, host_index;  // folded
  std::vector<Device> devices;
  std::vector<Wave> waves;
  std::map<std::string, Round> rounds[2];  // by the asker's address, per protocol
  std::vector<air::Socket> sockets;
  std::string addresses;
  std::string link;
  std::size_t txt_size;
  std::mt19937 random{1};  // only the delays that the RFC wants random
};

double random_between(Town& town, double low, double high) {
  return std::uniform_real_distribution<double>(low, high)(town.random);
}

std::string u16_text(unsigned value) { return {static_cast<char>(value >> 8 & 255), static_cast<char>(value & 255)}; }

std::string packed_address(int family, const std::string& text) {
  char bytes[16];
  inet_pton(family, text.c_str(), bytes);
  return {bytes, family == AF_INET ? 4U : 16U};
}

// One TXT string "id=N" and, where that is not enough, strings of filling up to the wanted size.
std::string txt_rdata(long number, std::size_t size) {
  const std::string id = "id=" + std::to_string(number);
  std::string rdata = static_cast<char>(id.size()) + id;
  while (rdata.size() < size) {
    const std::size_t length = std::min<std::size_t>(size - rdata.size(), 60) - 1;
    rdata += static_cast<char>(length) + ("f=" + std::string(length, 'x')).substr(0, length);
  }
  return rdata;
}

Device make_device(const Town& town, long number) {
  Device device;
  device.type = static_cast<std::size_t>(number) % town.types.size();
  const std::string label = "Device " + std::to_string(number);
  device.instance = static_cast<char>(label.size()) + label + town.types[device.type];
  device.host = air::make_name({"device-" + std::to_string(number), "local"});
  device.srv = u16_text(0) + u16_text(0) + u16_text(static_cast<unsigned>(1000 + number % 60000)) + device.host;
  device.txt = txt_rdata(number, town.txt_size);
  const std::string low = std::to_string(16 + number / 250) + "." + std::to_string(1 + number % 250);
  if (town.addresses.find('4') != std::string::npos)
    device.a = packed_address(AF_INET, "10." + town.link + "." + low);
  char six[64];
  std::snprintf(six, sizeof six, "fd00:%s::1:%lx", town.link.c_str(), number + 1);
  if (town.addresses.find('6') != std::string::npos)
    device.aaaa = packed_address(AF_INET6, six);
  return device;
}

void grow_to(Town& town, long count) {
  for (long number = static_cast<long>(town.devices.size()); number < count; ++number) {
    Device device = make_device(town, number);
    town.instance_index[air::folded(device.instance)] = number;
    town.host_index[air::folded(device.host)] = number;
    town.devices.push_back(std::move(device));
  }
}

using AddRecord = void (Writer::*)(const std::string&, std::uint16_t, std::uint16_t, std::uint32_t, std::string_view);

void add_addresses(Writer& writer, const Device& device, AddRecord add, bool goodbye) {
  const std::uint32_t ttl = goodbye ? 0 : air::kHostTtl;
  constexpr std::uint16_t kUnique = air::kClassIn | air::kCacheFlush;
  if (!device.a.empty())
    (writer.*add)(device.host, air::kTypeA, kUnique, ttl, device.a);
  if (!device.aaaa.empty())
    (writer.*add)(device.host, air::kTypeAaaa, kUnique, ttl, device.aaaa);
}

void add_service(Writer& writer, const Device& device, AddRecord add, bool goodbye) {
  constexpr std::uint16_t kUnique = air::kClassIn | air::kCacheFlush;
  (writer.*add)(device.instance, air::kTypeSrv, kUnique, goodbye ? 0 : air::kHostTtl, device.srv);
  (writer.*add)(device.instance, air::kTypeTxt, kUnique, goodbye ? 0 : air::kOtherTtl, device.txt);
}

void add_pointer(const Town& town, Writer& writer, const Device& device, bool goodbye) {
  writer.answer(town.types[device.type], air::kTypePtr, air::kClassIn, goodbye ? 0 : air::kOtherTtl, device.instance);
}

void send_on(Town& town, std::size_t protocol, Writer& writer) {
  if (writer.answers > 0)
    air::send_to_group(town.sockets[protocol], writer.finish());
}

void send_whole(Town& town, Device& device, bool goodbye) {
  Writer writer(air::kResponse);
  add_pointer(town, writer, device, goodbye);
  add_service(writer, device, &Writer::answer, goodbye);
  add_addresses(writer, device, &Writer::answer, goodbye);
  for (std::size_t protocol = 0; protocol < town.sockets.size(); ++protocol) {
    send_on(town, protocol, writer);
    device.service_sent_at[protocol] = device.host_sent_at[protocol] = air::now();
  }
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

// Sends what is due of the wave. True when it is over.
bool run_wave(Town& town, Wave& wave) {
  for (; wave.sent < wave.count && due_of(wave) <= air::now(); ++wave.sent) {
    Device& device = town.devices[static_cast<std::size_t>(wave.first + wave.sent)];
    if (wave.round == 1)
      device.live = !wave.goodbye;
    if (wave.round == 1 || device.live)
      send_whole(town, device, wave.goodbye);
  }
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
      air::say(times(done, done.goodbye ? "withdrawn" : "announced"));
    if (done.round == 1 && !done.goodbye) {
      town.waves.push_back({false, done.first, done.count, 0, done.begin + kAnnouncementGap, done.seconds, 2});
    }
  }
}

// --- Answers

std::string record_key(const std::string& name, std::uint16_t type, const std::string& rdata) {
  return air::folded(name) + static_cast<char>(type) + (type == air::kTypePtr ? air::folded(rdata) : rdata);
}

bool is_known(const Round& round, const std::string& name, std::uint16_t type, const std::string& rdata) {
  return !round.known.empty() && round.known.contains(record_key(name, type, rdata));
}

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
  for (std::size_t number = type; number < town.devices.size(); number += town.types.size()) {
    Device& device = town.devices[number];
    if (!device.live || at - device.service_sent_at[protocol] < kRepeatGap)
      continue;
    if (is_known(round, town.types[type], air::kTypePtr, device.instance))
      continue;
    const std::size_t size = 2 * device.instance.size() + device.host.size() + device.txt.size() + 100;
    if (batch.room_used + size > air::kMessageRoom)
      send_batch(town, protocol, batch);
    add_pointer(town, batch.writer, device, false);
    device.service_sent_at[protocol] = device.host_sent_at[protocol] = at;
    batch.devices.push_back(&device);
    batch.room_used += size;
  }
  send_batch(town, protocol, batch);
}

bool wants(const air::Question& question, std::uint16_t type) { return question.type == type || question.type == air::kTypeAny; }

Device* live_device(Town& town, const std::unordered_map<std::string, long>& index, const std::string& name) {
  const auto found = index.find(name);
  if (found == index.end())
    return nullptr;
  Device& device = town.devices[static_cast<std::size_t>(found->second)];
  return device.live ? &device : nullptr;
}

// Whether the asker lacks one of the records that the question wants.
bool lacks_service(const Round& round, const air::Question& question, const Device& device) {
  return (wants(question, air::kTypeSrv) && !is_known(round, device.instance, air::kTypeSrv, device.srv)) ||
         (wants(question, air::kTypeTxt) && !is_known(round, device.instance, air::kTypeTxt, device.txt));
}

bool lacks_address(const Round& round, const air::Question& question, const Device& device) {
  return (wants(question, air::kTypeA) && !device.a.empty() && !is_known(round, device.host, air::kTypeA, device.a)) ||
         (wants(question, air::kTypeAaaa) && !device.aaaa.empty() && !is_known(round, device.host, air::kTypeAaaa, device.aaaa));
}

// Each device answers for itself.
void answer_unique(Town& town, std::size_t protocol, const Round& round, const air::Question& question) {
  const double at = air::now();
  Writer writer(air::kResponse);
  Device* device = live_device(town, town.instance_index, question.name);
  if (device != nullptr && lacks_service(round, question, *device) && at - device->service_sent_at[protocol] >= kRepeatGap) {
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

void note_known(const air::Message& message, Round& round) {
  for (const air::Record& record : message.answers) {
    const bool is_host_record = record.type != air::kTypePtr && record.type != air::kTypeTxt;
    if (record.ttl * 2 < (is_host_record ? air::kHostTtl : air::kOtherTtl))
      continue;
    std::string rdata = record.rdata;
    if (record.type == air::kTypePtr)
      rdata = record.target;
    if (record.type == air::kTypeSrv)
      rdata = record.rdata.substr(0, 6) + record.target;
    round.known.insert(record_key(record.name, record.type, rdata));
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

void handle_packets(Town& town, std::size_t protocol) {
  static std::uint8_t buffer[65536];
  for (;;) {
    sockaddr_storage from{};
    socklen_t from_size = sizeof from;
    const ssize_t size =
        recvfrom(town.sockets[protocol].descriptor, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &from_size);
    if (size < 0)
      return;
    const auto message = air::read_message({buffer, static_cast<std::size_t>(size)});
    if (!message || (message->flags & 0x8000) != 0)
      continue;
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
  const double seconds = words.size() > 3 ? std::stod(words[3]) : 0;
  town.waves.push_back({words[0] == "withdraw", first, count, 0, air::now(), seconds, 1});
}

}  // namespace

int main(int argc, char** argv) {
  const air::Options options(argc, argv, {"interface", "types", "link", "addresses", "txt"});
  Town town;
  town.sockets = air::open_sockets(options.text("interface"));
  town.addresses = options.text("addresses").empty() ? "46" : options.text("addresses");
  town.link = std::to_string(options.number("link", 1));
  town.txt_size = static_cast<std::size_t>(options.number("txt", 64));
  for (const std::string& type : options.list("types")) {
    town.types.push_back(air::make_dotted_name(type + ".local"));
    town.type_index[air::folded(town.types.back())] = town.types.size() - 1;
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
