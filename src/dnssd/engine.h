// SPDX-License-Identifier: MIT
// The engine's life and its one pass; the frame that every call of dns_sd.h stands in.
#pragma once

#include "dnssd/dnssd.h"

namespace dnssd {

// Scope of one call into the library: on entry signals are held back and a forked child lets go of its parent's engine;
// on leaving, the descriptor is set for what comes next and the caller's signal mask returns.
struct LibraryCall {
  LibraryCall();
  ~LibraryCall();
  LibraryCall(const LibraryCall&) = delete;
  LibraryCall& operator=(const LibraryCall&) = delete;
};

// Makes gEngine unless there is one. kErrServiceNotRunning when the system refuses the descriptors.
DNSServiceErrorType engine_open();

// Ends the engine if no live reference stands by itself (after a failed start).
void engine_close_if_unused();

// Withdraws everything with its goodbyes, invalidates every reference, frees everything; gEngine is null afterwards.
void engine_close();

// One pass: what is due in the descriptors and timers, then replies. kErrServiceNotRunning when the engine is lost,
// kDNSServiceErr_BadState inside a callback. The process ends in it if a signal that the library took has arrived.
DNSServiceErrorType engine_pass();

// For what nobody is to foresee, or two hosts are not to have in common.
std::uint64_t random_number();

// Appends a reply for `operation`.
void reply_queue(Operation& operation, Reply&& reply);

// Delivers a bounded number of replies, oldest first. Anything may have been released when it returns, gEngine too.
void replies_deliver();

}  // namespace dnssd
