// SPDX-License-Identifier: MIT
// air-asker: how long a link's questions wait for their answers. It asks for one service after another, again and
// again, and notes when the gateway's answer to each was on the link.
//
//   air-asker --interface NAME --type _ipp._tcp --from ADDRESS,ADDRESS
//
// The questions are for the SRV records of "Device N", over IPv4 and IPv6 in turn; such a record has one owner, so that
// it is answered without delay. The same service should be asked for every two seconds at most: what has been said
// within a second is not said again (RFC 6762 section 6). Commands, one a line on standard input:
//
//   go FIRST COUNT MILLISECONDS   asks for one of these every so many milliseconds from now on
//   stop                          ends that; a second later says {"asked": N, "unanswered": N, "waits": [seconds,
//                                 ...]} of all since "go", in the order of the questions; what has no answer by then
//                                 has waited until then
#include <algorithm>
#include <cstdio>
#include <limits>
#include <unordered_map>

#include "loop.h"
#include "packet.h"
#include "sockets.h"

namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();
constexpr double kLastWait = 1.0;  // for answers to the last questions

struct Asked {
  double at = 0, answered_at = 0;
};

struct Asker {
  int ear = -1;
  std::vector<air::Socket> sockets;
  std::vector<std::string> gateway;
  std::string type;
  long first = 0, count = 0;
  double interval = 0, due = kNever, report_at = kNever;
  long turn = 0;  // which is asked for next: goes on from one "go" to the next, so that none is asked for again too
                  // soon
  std::vector<Asked> asked;
  std::unordered_map<std::string, std::size_t> waiting;  // folded instance name: its last question in `asked`
};

std::string instance(const Asker& asker, long number) {
  const std::string label = "Device " + std::to_string(number);
  return static_cast<char>(label.size()) + label + asker.type;
}

void ask(Asker& asker) {
  const std::string name = instance(asker, asker.first + asker.turn++ % asker.count);
  air::Writer writer(0);
  writer.question(name, air::kTypeSrv);
  asker.waiting[air::folded(name)] = asker.asked.size();
  asker.asked.push_back({air::now(), 0});
  air::send_to_group(asker.sockets[asker.asked.size() % asker.sockets.size()], writer.finish());
  asker.due += asker.interval;
}

void note(Asker& asker, const air::Record& record, double at) {
  const auto found = asker.waiting.find(record.name);
  if (record.type != air::kTypeSrv || record.ttl == 0 || found == asker.waiting.end())
    return;
  Asked& asked = asker.asked[found->second];
  if (at < asked.at)
    return;
  asked.answered_at = at;
  asker.waiting.erase(found);
}

void handle_packets(Asker& asker) {
  for (air::Heard heard; air::hear(asker.ear, heard);) {
    if (std::find(asker.gateway.begin(), asker.gateway.end(), heard.source) == asker.gateway.end())
      continue;
    const auto message = air::read_message(heard.payload);
    if (!message || (message->flags & 0x8000) == 0)
      continue;
    for (const air::Record& record : message->answers)
      note(asker, record, heard.at);
  }
}

std::string report(const Asker& asker) {
  long unanswered = 0;
  std::string waits;
  for (const Asked& asked : asker.asked) {
    unanswered += asked.answered_at == 0 ? 1 : 0;
    char text[32];
    std::snprintf(text, sizeof text, "%s%.6f", waits.empty() ? "" : ", ",
                  (asked.answered_at == 0 ? air::now() : asked.answered_at) - asked.at);
    waits += text;
  }
  return "{\"asked\": " + std::to_string(asker.asked.size()) + ", \"unanswered\": " + std::to_string(unanswered) +
         ", \"waits\": [" + waits + "]}";
}

void handle_due(Asker& asker) {
  if (asker.due <= air::now())
    return ask(asker);
  air::say(report(asker));
  asker.report_at = kNever;
}

void obey(Asker& asker, const std::string& line) {
  const std::vector<std::string> words = air::words_of(line);
  if (words.size() == 4 && words[0] == "go") {
    asker.first = std::stol(words[1]);
    asker.count = std::stol(words[2]);
    asker.interval = std::stod(words[3]) / 1000;
    asker.asked.clear();
    asker.waiting.clear();
    asker.due = air::now();
  } else if (line == "stop") {
    asker.due = kNever;
    asker.report_at = air::now() + kLastWait;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const air::Options options(argc, argv, {"interface", "type", "from"});
  Asker asker;
  asker.sockets = air::open_sockets(options.text("interface"));
  asker.ear = air::open_ear(options.text("interface"));
  asker.gateway = options.list("from");
  asker.type = air::make_dotted_name(options.text("type") + ".local");
  air::Loop loop;
  loop.watches.push_back({asker.ear, [&] { handle_packets(asker); }});
  loop.command = [&](const std::string& line) { obey(asker, line); };
  loop.next_due = [&] { return std::min(asker.due, asker.report_at); };
  loop.due = [&] { handle_due(asker); };
  air::say("ready");
  air::run(loop);
}
