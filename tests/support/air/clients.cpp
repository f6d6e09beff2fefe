// SPDX-License-Identifier: MIT
// air-clients: the phones and laptops of a link. Each is awake for some sessions; in a session it browses some types of
// service, and asks again after 1, 2, 4 ... seconds with what it knows by then, as RFC 6762 section 5.2 has it.
//
//   air-clients --interface NAME --types _ipp._tcp,_smb._tcp --clients N [--picks TYPES] [--sessions N] [--seed NUMBER]
//               [--resolve 1]
//
// A client forgets everything between two sessions. The same seed gives the same sessions, so that every gateway under
// comparison gets the same questions. Command on standard input: "go SECONDS" starts the sessions, spread over that
// time (with one session: all of it, from the start); says "done QUERIES RESOLVED LAST" when it is over. With --resolve
// a client also asks for the SRV, the TXT and the addresses of each service that it has found, as long as it lacks any
// of them, again after 1, 2, 4 ... seconds; RESOLVED is how many services the clients have had all of, each client's
// counted, and LAST when the last of these was complete (seconds of the real-time clock).
//
// What they do not do: hold a question back because another client has just asked it (RFC 6762 section 7.3), ask for
// unicast answers, and, without --resolve, resolve: SRV, TXT and addresses come with the answers.
#include <algorithm>
#include <cstdio>
#include <limits>
#include <map>
#include <random>
#include <unordered_map>
#include <unordered_set>

#include "loop.h"
#include "packet.h"
#include "sockets.h"

namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();
constexpr double kFirstDelayMin = 0.020, kFirstDelayMax = 0.120;  // RFC 6762 section 5.2
constexpr double kFirstInterval = 1.0;

// What a client knows of one service that it has found.
struct Resolve {
  double due, interval;
  bool srv = false, txt = false, complete = false;
  std::string host = {};  // folded
};

struct Browse {
  std::string type;  // on the wire
  double due, interval;
  std::map<std::string, std::string> known;      // folded instance name to the name as it was written
  std::map<std::string, Resolve> resolves = {};  // by the folded instance name
  double resolves_due = kNever;                  // when the first of them is
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
  bool resolves = false;
  long queries = 0, resolved = 0;
  double last_resolved = 0;
  std::unordered_set<std::string> hosts;                                          // with an address; folded
  std::unordered_map<std::string, std::unordered_set<std::string>> instances_on;  // host: what its services are called
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
    session.browses.push_back(
        {type, begin + random_between(crowd, kFirstDelayMin, kFirstDelayMax), kFirstInterval, {}});
  }
  return session;
}

// Each client's time is cut into one part per session; a session takes a random half of its part. A single session
// takes all.
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

// --- Resolving

void send_to_all(const Crowd& crowd, air::Writer& writer) {
  if (writer.questions > 0) {
    for (const air::Socket& socket : crowd.sockets)
      air::send_to_group(socket, writer.finish());
  }
}

// Questions for what is lacked, many to a message.
void ask_resolves(Crowd& crowd, Browse& browse, double at) {
  constexpr std::size_t kRoomForQuestions = 600;  // three questions with two names of the longest
  air::Writer writer(0);
  browse.resolves_due = kNever;
  for (auto& [name, resolve] : browse.resolves) {
    if (resolve.complete)
      continue;
    if (resolve.due > at) {
      browse.resolves_due = std::min(browse.resolves_due, resolve.due);
      continue;
    }
    resolve.due = at + resolve.interval;
    resolve.interval *= 2;
    browse.resolves_due = std::min(browse.resolves_due, resolve.due);
    if (writer.bytes.size() + kRoomForQuestions > air::kMessageRoom) {
      send_to_all(crowd, writer);
      writer = air::Writer(0);
    }
    if (!resolve.srv)
      writer.question(browse.known.at(name), air::kTypeSrv);
    if (!resolve.txt)
      writer.question(browse.known.at(name), air::kTypeTxt);
    if (!resolve.host.empty() && !crowd.hosts.contains(resolve.host)) {
      writer.question(resolve.host, air::kTypeA);
      writer.question(resolve.host, air::kTypeAaaa);
    }
    ++crowd.queries;
  }
  send_to_all(crowd, writer);
}

void review(Crowd& crowd, Resolve& resolve, double at) {
  if (resolve.complete || !resolve.srv || !resolve.txt || !crowd.hosts.contains(resolve.host))
    return;
  resolve.complete = true;
  ++crowd.resolved;
  crowd.last_resolved = at;
}

// A service is to be resolved from its PTR record on; another record of it may have come before, in the same packet or
// not.
void learn_service(Crowd& crowd, Browse& browse, const air::Record& record, double at) {
  if (record.type == air::kTypePtr && record.ttl > 0) {
    if (browse.resolves_due > at + kFirstDelayMax)
      browse.resolves_due = at + random_between(crowd, kFirstDelayMin, kFirstDelayMax);
    browse.resolves.try_emplace(air::folded(record.target), Resolve{browse.resolves_due, kFirstInterval});
    return;
  }
  const auto found = browse.resolves.find(record.name);
  if (found == browse.resolves.end() || record.ttl == 0)
    return;
  if (record.type == air::kTypeTxt)
    found->second.txt = true;
  if (record.type == air::kTypeSrv) {
    found->second.srv = true;
    found->second.host = air::folded(record.target);
    crowd.instances_on[found->second.host].insert(record.name);
  }
  review(crowd, found->second, at);
}

// --- Browsing

void ask_what_is_due(Crowd& crowd) {
  const double at = air::now();
  for (Session& session : crowd.sessions) {
    for (Browse& browse : session.browses) {
      if (browse.resolves_due <= at && at < session.end)
        ask_resolves(crowd, browse, at);
      if (browse.due > at || at >= session.end)
        continue;
      ask(crowd, browse);
      browse.due = at + browse.interval;
      browse.interval *= 2;
    }
  }
}

void learn_pointer(Browse& browse, const air::Record& record) {
  if (record.ttl == 0) {
    browse.known.erase(air::folded(record.target));
    browse.resolves.erase(air::folded(record.target));
  } else {
    browse.known.try_emplace(air::folded(record.target), record.target);
  }
}

// The first address of a host completes what is on it.
void learn_address(Crowd& crowd, Browse& browse, const air::Record& record, double at) {
  for (const std::string& name : crowd.instances_on[record.name]) {
    const auto found = browse.resolves.find(name);
    if (found != browse.resolves.end())
      review(crowd, found->second, at);
  }
}

void learn(Crowd& crowd, const air::Record& record) {
  const double at = air::now();
  const bool is_address = record.type == air::kTypeA || record.type == air::kTypeAaaa;
  const bool is_pointer = record.type == air::kTypePtr;
  if (!is_pointer && !crowd.resolves)
    return;
  if (is_address && (record.ttl == 0 || !crowd.hosts.insert(record.name).second))
    return;
  for (Session& session : crowd.sessions) {
    if (at < session.begin || at >= session.end)
      continue;
    for (Browse& browse : session.browses) {
      if (is_pointer && air::folded(browse.type) != record.name)
        continue;
      if (is_pointer)
        learn_pointer(browse, record);
      if (is_address) {
        learn_address(crowd, browse, record, at);
      } else if (crowd.resolves) {
        learn_service(crowd, browse, record, at);
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
        due = std::min({due, browse.due, browse.resolves_due});
    }
  }
  return due;
}

void handle_due(Crowd& crowd) {
  if (air::now() < crowd.end)
    return ask_what_is_due(crowd);
  char text[96];
  std::snprintf(text, sizeof text, "done %ld %ld %.6f", crowd.queries, crowd.resolved, crowd.last_resolved);
  air::say(text);
  crowd.sessions.clear();
  crowd.hosts.clear();
  crowd.instances_on.clear();
  crowd.queries = crowd.resolved = 0;
  crowd.end = kNever;
}

}  // namespace

int main(int argc, char** argv) {
  const air::Options options(argc, argv, {"interface", "types", "clients", "picks", "sessions", "seed", "resolve"});
  Crowd crowd;
  crowd.sockets = air::open_sockets(options.text("interface"));
  crowd.clients = options.number("clients", 1);
  crowd.picks = options.number("picks", 1);
  crowd.sessions_each = options.number("sessions", 1);
  crowd.resolves = options.number("resolve", 0) != 0;
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
