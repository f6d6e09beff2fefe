// SPDX-License-Identifier: MIT
// Notices when an interface comes back, so that what is published there is probed for and announced anew (RFC 6762 section
// 8). A netlink socket says that something has changed; what it was is read from the system's list of addresses.
#pragma once

namespace dnssd {

struct Server;

// Opens the netlink socket for gEngine. Without one, nothing is announced anew; everything else works.
void links_open();
void links_close();

// Notes what there is of a new server's link.
void links_note(Server& server);

}  // namespace dnssd
