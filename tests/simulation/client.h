// SPDX-License-Identifier: MIT
// How a simulated host uses its engine: the calls of mdns.h, each together with its entries in the books (books.h).
#pragma once

#include "simulation/world.h"

namespace simulation {

// Each gives the tag under which the port knows it. A tag of something that has ended is left alone.
Tag publish(Port& port, std::string_view name, std::vector<mdns::RecordData> records, mdns::Claim claim,
            std::function<void(bool established)> report = {});
bool update(Port& port, Tag tag, const mdns::RecordData& record, bool for_all = false);
void withdraw(Port& port, Tag tag, bool with_goodbye = true);
Tag query(Port& port, std::string_view name, std::uint16_t type,
          std::function<void(bool added, const std::string& rdata)> report = {});
void stop(Port& port, Tag tag);

// The link itself.
void set_protocols(Port& port, mdns::Protocols protocols);
void restart(Port& port, bool was_down);
void fall_asleep(Host& host);
void wake_up(Host& host);  // one that is not asleep: nothing happens
void vanish(Host& host);

// Stops all queries and withdraws everything: one by one, or `at_once` by the call for a link that is about to be
// closed.
void retire(Port& port, bool at_once);

// What the engine reported: first all of it is noted, then acted upon.
void take_note(Port& port, const std::vector<mdns::Event>& events);
void act_upon(Port& port, const std::vector<mdns::Event>& events);

}  // namespace simulation
