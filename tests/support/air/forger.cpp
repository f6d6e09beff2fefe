// SPDX-License-Identifier: MIT
// air-forger: a host that says what is not so. It answers nothing.
//
//   air-forger --interface NAME --type _ipp._tcp
//
// Commands, one a line on standard input, each answered by "sent PACKETS BEGIN END" (seconds of the real-time clock):
//
//   goodbyes FIRST COUNT          goodbyes of the PTR records of "Device N", in as few packets as it takes, over both
//                                 protocols
//   invent FIRST COUNT SECONDS    services that do not exist, "Invented N" on hosts of their own, a packet each, evenly
//                                 spread
//   flood SECONDS                 packets full of PTR records to instances of random names, as fast as they can be sent
#include <poll.h>

#include <cstdio>
#include <limits>
#include <random>

#include "loop.h"
#include "packet.h"
#include "sockets.h"

namespace {

using air::Writer;

constexpr std::size_t kRoomForPointer = 60;  // what one more record may add to a packet

struct Forger {
  std::vector<air::Socket> sockets;
  std::string type;
  std::mt19937_64 random{1};
};

std::string instance(const Forger& forger, const std::string& label) {
  return static_cast<char>(label.size()) + label + forger.type;
}

long send_to_all(const Forger& forger, Writer& writer) {
  for (const air::Socket& socket : forger.sockets)
    air::send_to_group(socket, writer.finish());
  return static_cast<long>(forger.sockets.size());
}

long goodbyes(Forger& forger, long first, long count) {
  long sent = 0;
  Writer writer(air::kResponse);
  for (long number = first; number < first + count; ++number) {
    if (writer.bytes.size() + kRoomForPointer > air::kMessageRoom) {
      sent += send_to_all(forger, writer);
      writer = Writer(air::kResponse);
    }
    writer.answer(forger.type, air::kTypePtr, air::kClassIn, 0, instance(forger, "Device " + std::to_string(number)));
  }
  return sent + send_to_all(forger, writer);
}

void announce_invented(const Forger& forger, long number) {
  constexpr std::uint16_t kUnique = air::kClassIn | air::kCacheFlush;
  const std::string name = instance(forger, "Invented " + std::to_string(number));
  const std::string host = air::make_name({"invented-" + std::to_string(number), "local"});
  const std::string address{10, 1, static_cast<char>(1 + number / 250 % 250), static_cast<char>(1 + number % 250)};
  Writer writer(air::kResponse);
  writer.answer(forger.type, air::kTypePtr, air::kClassIn, air::kOtherTtl, name);
  writer.answer(name, air::kTypeSrv, kUnique, air::kHostTtl, std::string("\0\0\0\0\2\x77", 6) + host);
  writer.answer(name, air::kTypeTxt, kUnique, air::kOtherTtl, std::string("\x09txtvers=1"));
  writer.answer(host, air::kTypeA, kUnique, air::kHostTtl, address);
  air::send_to_group(forger.sockets[static_cast<std::size_t>(number) % forger.sockets.size()], writer.finish());
}

long invent(Forger& forger, long first, long count, double seconds) {
  const double begin = air::now();
  for (long number = 0; number < count; ++number) {
    const double wait = begin + seconds * static_cast<double>(number) / static_cast<double>(count) - air::now();
    if (wait > 0)
      poll(nullptr, 0, static_cast<int>(wait * 1000) + 1);
    announce_invented(forger, first + number);
  }
  return count;
}

long flood(Forger& forger, double seconds) {
  long sent = 0;
  for (const double end = air::now() + seconds; air::now() < end; ++sent) {
    Writer writer(air::kResponse);
    while (writer.bytes.size() + kRoomForPointer < air::kMessageRoom) {
      writer.answer(forger.type, air::kTypePtr, air::kClassIn, air::kOtherTtl,
                    instance(forger, "Noise " + std::to_string(forger.random() % 1'000'000'000)));
    }
    air::send_to_group(forger.sockets[static_cast<std::size_t>(sent) % forger.sockets.size()], writer.finish());
  }
  return sent;
}

void obey(Forger& forger, const std::string& line) {
  const std::vector<std::string> words = air::words_of(line);
  const double begin = air::now();
  long sent = -1;
  if (words.size() == 3 && words[0] == "goodbyes")
    sent = goodbyes(forger, std::stol(words[1]), std::stol(words[2]));
  if (words.size() == 4 && words[0] == "invent")
    sent = invent(forger, std::stol(words[1]), std::stol(words[2]), std::stod(words[3]));
  if (words.size() == 2 && words[0] == "flood")
    sent = flood(forger, std::stod(words[1]));
  char text[96];
  std::snprintf(text, sizeof text, "sent %ld %.6f %.6f", sent, begin, air::now());
  air::say(sent < 0 ? "error " + line : text);
}

}  // namespace

int main(int argc, char** argv) {
  const air::Options options(argc, argv, {"interface", "type"});
  Forger forger;
  forger.sockets = air::open_sockets(options.text("interface"));
  forger.type = air::make_dotted_name(options.text("type") + ".local");
  air::Loop loop;
  loop.command = [&](const std::string& line) { obey(forger, line); };
  loop.next_due = [] { return std::numeric_limits<double>::infinity(); };
  loop.due = [] {};
  air::say("ready");
  air::run(loop);
}
