// SPDX-License-Identifier: MIT
// libdns_sd.so.1: the dns_sd.h interface over the multicast DNS of src/mdns, in the caller's own process.
//
// What the library promises
//
//   Functions. DNSServiceCreateConnection, -Browse, -Resolve, -QueryRecord, -Register, -RegisterRecord, -UpdateRecord,
//   -RemoveRecord, -RefSockFD, -ProcessResult and -RefDeallocate, as the comments of dns_sd.h describe them; with
//   kDNSServiceFlagsShareConnection (0x4000) and without it. dns_sd_link_figures says what has
//   passed over the links (dns_sd_figures.h). Nothing else is exported.
//
//   One engine. A process has one engine on one epoll descriptor, and every live reference answers DNSServiceRefSockFD
//   with it. DNSServiceProcessResult on any of them drives the engine and delivers the replies of all of them, in the
//   order in which they arose: a caller that always serves one connection first starves no other. It never blocks, does
//   a bounded amount of work and delivers a bounded number of replies; the descriptor stays readable while there is
//   more. The library has no thread of its own and, like dns_sd.h, leaves it to the caller to serialise its calls.
//
//   Interfaces. An operation runs on the one interface that it names. Index 0 (any) and
//   kDNSServiceInterfaceIndexLocalOnly are kDNSServiceErr_Unsupported, an index that is no interface's is
//   kDNSServiceErr_BadInterfaceIndex. Each interface in use has sockets of its own for IPv4 and IPv6, bound to it; no
//   capability is needed for that (where a kernel older than 5.7 refuses it: kDNSServiceErr_NoAuth), and other
//   responders of the machine run on undisturbed. Packets go out over a protocol only while the interface has an
//   address of it. When an interface goes, all that was found there is reported removed, and its operations go on: what
//   they registered is announced again when it comes back. Nothing of the machine's own is published. The domain is
//   "local" (null, "local" and "local." mean it); others are kDNSServiceErr_Unsupported. Names are UTF-8; others are
//   kDNSServiceErr_BadParam.
//
//   Aliases. CNAME records are not followed: one is reported to whoever asks for that type, like any other record.
//
//   Hosts. A host that is not on the link gives way to one on the link that has the same name: its shared address
//   records (flag 0x10, types A and AAAA) are then published under "name-2", and the SRV records of its services name
//   that.
//
//   Changes. When the SRV or TXT data of an instance changes that was browsed for and resolved, and that resolve has
//   been released, the browse reports the instance removed and added again. What the caller withdraws then, and
//   registers again within a fifth of a second, is an update on the wire: no goodbye, no probes, one announcement of
//   what is different. When all addresses of a host that are asked for have expired, its services are asked for once
//   more and reported removed after ten seconds without an answer.
//
//   Callbacks. Replies are delivered from DNSServiceProcessResult only. Any operation, the callback's own included, or
//   a whole connection may be released in one, and exit() may be called; nothing is delivered for a released operation.
//   DNSServiceProcessResult itself may not be called there (kDNSServiceErr_BadState).
//
//   Signals. While the library works or calls back, all signals are held back but those of a fault (SEGV, BUS, FPE,
//   ILL, ABRT, TRAP): no handler runs in the middle of its data. The calling thread's mask is restored on leaving.
//   While something is registered, each of SIGTERM, SIGINT, SIGHUP and SIGQUIT that the program leaves to its default
//   action (and has not blocked) is taken: blocked, and read from a signalfd in the engine. When one arrives,
//   everything is withdrawn with its goodbyes and the process then dies of that signal as it would have. With a handler
//   of its own the program keeps the signal, and with nothing registered any more it gets it back. (Process 1 of a pid
//   namespace, which the default action does not kill, keeps all of them.)
//
//   Goodbyes. Whatever is withdrawn gets its goodbye on the wire: before the call returns when the last connection is
//   released, and when the process returns from main or calls exit() (three seconds at most). A child of fork() has no
//   part in its parent's engine: the parent's references are bad ones there, and it sends nothing in its parent's name.
//
//   Restarts. Where the environment variable MDNSPROXY_HANDOVER names a file, a process can take over the published
//   records of its predecessor (operations/handover.h): they are not withdrawn and announced again.
//
//   Flags. Bits that the library does not know, private ones such as 0x08000000 and 0x80000000 among them, are ignored,
//   as are kDNSServiceFlagsForceMulticast (everything here is multicast) and kDNSServiceFlagsLongLivedQuery (so is
//   every query). kDNSServiceErr_BadFlags: a record that is not exactly one of shared and unique; NoAutoRename without
//   a name or a callback.
//
//   References. A DNSServiceRef or DNSRecordRef is a handle, a number that is never used again, not an address: one
//   that is stale, wild or of the wrong kind is recognised (kDNSServiceErr_BadReference, descriptor -1, or nothing
//   happens).
//
// What it needs: Linux (epoll, timerfd, signalfd, netlink, SO_BINDTODEVICE), UDP port 5353 shared with others. It
// includes src/mdns and nothing else of this source tree.
//
// Its folders are its layers: base (names, descriptors, signals), state (the records of operations, interfaces and the
// engine), links (sockets, what the kernel reports, interfaces), operations (what each kind of them does, and the file
// of a restart), and on top this header, dnssd.cpp and api.cpp.
//
// Reading order: api.cpp (each dns_sd.h function: what is checked, which operation starts); state/operation.h,
// interface.h and engine.h (the records); dnssd.cpp (one pass, and the delivery of replies); then what the operations
// do: operations/lookup.cpp and publish.cpp, hosts.cpp (the names of hosts of other links) and inheritance.cpp; last
// what they stand on: links, base.
#pragma once

#include "dnssd/state/engine.h"

namespace dnssd {

// Scope of one call into the library. On entry signals are held back, and a forked child drops its parent's engine. At
// the end an engine without a reference ends, the descriptor's timer is set, and the caller's signal mask is restored.
struct LibraryCall {
  LibraryCall();
  ~LibraryCall();
  LibraryCall(const LibraryCall&) = delete;
  LibraryCall& operator=(const LibraryCall&) = delete;
};

// Makes gEngine unless there is one. kErrServiceNotRunning when the system refuses the descriptors.
DNSServiceErrorType engine_open();

// One pass: serves readable descriptors, due timers and links, then delivers replies. kErrServiceNotRunning when the
// engine is lost, kDNSServiceErr_BadState inside a callback. The process ends in it if a signal that the library took
// has arrived.
DNSServiceErrorType engine_pass();

}  // namespace dnssd
