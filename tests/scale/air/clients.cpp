// SPDX-License-Identifier: MIT
// air-clients: the phones and laptops of a link. Each is awake for some sessions; in a session it browses some types of service,
// and asks again after 1, 2, 4 ... seconds with what it knows by then, as RFC 6762 section 5.2 has it.
//
//   air-clients --interface NAME --types _ipp._tcp,_smb._tcp --clients N [--picks TYPES] [--sessions N] [--seed NUMBER]
//
// A client forgets everything between two sessions. The same seed gives the same sessions, so that every gateway under
// comparison gets the same questions. Command on standard input: "go SECONDS" starts the sessions, spread over that time (with
// one session: all of it, from the start); says "done QUERIES" when it is over.
//
// What they do not do: hold a question back because another client has just asked it (RFC 6762 section 7.3), resolve (SRV, TXT
// and addresses come with the answers), ask for unicast answers.
#include <algorithm>
#include <cstdio>
#include <limits>
#include <map>
#include <random>

#include "loop.h"
#include "packet.h"
#include "sockets.h"

namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();
constexpr double kFirstDelayMin = 0.020, kFirstDelayMax = 0.120;  // RFC 6762 section 5.2
constexpr double kFirstInterval = 1.0;

struct Browse {
  std::string type;  // on the wire
  double due, interval;
  std::map<std::string, std::string> known;  // folded instance name to the name as it was written
};

struct Session {
  double begin, end;
  std::vector<Browse> browses;
};

struct Crowd {
  std::vector<std::string> types;
  std::vector<air::Socket> sockets;
  std::vector<Session> sessions;
  std::mt19937 random;
  long clients, picks, sessions_each;
  long queries = 0;
  double end = kNever;
};

double random_between(Crowd& crowd, double low, double high) {
  return std::uniform_real_distribution<double>(low, high)(crowd.random);
}

std::vector<std::string> pick_types(Crowd& crowd) {
  std::vector<std::string> types = crowd.types;
  std::shuffle(types.begin(), types.end(), crowd.random);
  types.resize(std::min(types.size(), static_cast<std::size_t>(crowd.picks)));
  return types;
}

Session make_session(Crowd& crowd, double begin, double end) {
  Session session{begin, end, {}};
  for (const std::string& type : pick_types(crowd)) {
    session.browses.push_back({type, begin + random_between(crowd, kFirstDelayMin, kFirstDelayMax), kFirstInterval, {}});
  }
  return session;
}

// Each client's time is cut into one part per session; a session takes a random half of its part. A single session takes all.
void plan(Crowd& crowd, double seconds) {
  const double begin = air::now(), part = seconds / static_cast<double>(crowd.sessions_each);
  for (long client = 0; client < crowd.clients; ++client) {
    for (long number = 0; number < crowd.sessions_each; ++number) {
      const double from = begin + part * static_cast<double>(number);
      const double late = crowd.sessions_each == 1 ? 0 : random_between(crowd, 0, part / 2);
      const double length = crowd.sessions_each == 1 ? part : part / 2;
      crowd.sessions.push_back(make_session(crowd, from + late, from + late + length));
    }
  }
  crowd.end = begin + seconds;
}

// One query with all that is known, in as many messages as it takes.
void ask(Crowd& crowd, const Browse& browse) {
  for (const air::Socket& socket : crowd.sockets) {
    air::Writer writer(0);
    writer.question(browse.type, air::kTypePtr);
    for (const auto& [name, written] : browse.known) {
      if (writer.bytes.size() + written.size() + 12 > air::kMessageRoom) {
        writer.truncated();
        air::send_to_group(socket, writer.finish());
        writer = air::Writer(0);
      }
      writer.answer(browse.type, air::kTypePtr, air::kClassIn, air::kOtherTtl, written);
    }
    air::send_to_group(socket, writer.finish());
  }
  ++crowd.queries;
}

void ask_what_is_due(Crowd& crowd) {
  const double at = air::now();
  for (Session& session : crowd.sessions) {
    for (Browse& browse : session.browses) {
      if (browse.due > at || at >= session.end)
        continue;
      ask(crowd, browse);
      browse.due = at + browse.interval;
      browse.interval *= 2;
    }
  }
}

void learn(Crowd& crowd, const air::Record& record) {
  if (record.type != air::kTypePtr)
    return;
  const double at = air::now();
  for (Session& session : crowd.sessions) {
    if (at < session.begin || at >= session.end)
      continue;
    for (Browse& browse : session.browses) {
      if (air::folded(browse.type) != record.name)
        continue;
      if (record.ttl == 0) {
        browse.known.erase(air::folded(record.target));
      } else {
        browse.known.try_emplace(air::folded(record.target), record.target);
      }
    }
  }
}

void handle_packets(Crowd& crowd, const air::Socket& socket) {
  static std::uint8_t buffer[65536];
  for (ssize_t size = 0; (size = recv(socket.descriptor, buffer, sizeof buffer, 0)) >= 0;) {
    const auto message = air::read_message({buffer, static_cast<std::size_t>(size)});
    if (!message || (message->flags & 0x8000) == 0)
      continue;
    for (const air::Record& record : message->answers)
      learn(crowd, record);
    for (const air::Record& record : message->additionals)
      learn(crowd, record);
  }
}

double next_due(const Crowd& crowd) {
  double due = crowd.end;
  for (const Session& session : crowd.sessions) {
    for (const Browse& browse : session.browses) {
      if (browse.due < session.end)
        due = std::min(due, browse.due);
    }
  }
  return due;
}

void handle_due(Crowd& crowd) {
  if (air::now() < crowd.end)
    return ask_what_is_due(crowd);
  air::say("done " + std::to_string(crowd.queries));
  crowd.sessions.clear();
  crowd.queries = 0;
  crowd.end = kNever;
}

}  // namespace

int main(int argc, char** argv) {
  const air::Options options(argc, argv, {"interface", "types", "clients", "picks", "sessions", "seed"});
  Crowd crowd;
  crowd.sockets = air::open_sockets(options.text("interface"));
  crowd.clients = options.number("clients", 1);
  crowd.picks = options.number("picks", 1);
  crowd.sessions_each = options.number("sessions", 1);
  crowd.random.seed(static_cast<unsigned>(options.number("seed", 1)));
  for (const std::string& type : options.list("types"))
    crowd.types.push_back(air::make_dotted_name(type + ".local"));
  air::Loop loop;
  for (const air::Socket& socket : crowd.sockets) {
    loop.watches.push_back({socket.descriptor, [&] { handle_packets(crowd, socket); }});
  }
  loop.command = [&](const std::string& line) {
    const std::vector<std::string> words = air::words_of(line);
    if (words.size() == 2 && words[0] == "go")
      plan(crowd, std::stod(words[1]));
  };
  loop.next_due = [&] { return next_due(crowd); };
  loop.due = [&] { handle_due(crowd); };
  air::say("ready");
  air::run(loop);
}
