// SPDX-License-Identifier: MIT
// What a server listens to: the savings without which two thousand services cost many times what they should. Avahi holds each
// question of type ANY, which is what probes are (RFC 6762 section 8.1), against every record that it has published or remembers.
//
//   - Where nothing is published, neither probes nor this machine's own questions are listened to: there is no name to
//     defend, and nothing to answer with.
//   - Where very many records are published (a crowd), and only there, this machine's own probes, which multicast loops
//     back, are not listened to. Another responder on this machine still hears ours, and that both want a name is found out
//     when it announces it.
#pragma once

namespace dnssd {

struct Server;

enum class Ear { unpublished, ordinary, crowded };

// Makes the two sockets listen as the number of publications demands; to be called when that has changed.
void crowd_review(Server& server);

// The same for a socket that has just been made, when nothing is published.
void crowd_begin(int fd);

}  // namespace dnssd
