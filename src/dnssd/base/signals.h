// SPDX-License-Identifier: MIT
// The signals of the calling program while the library works, and those that end it (see dnssd.h: Signals).
#pragma once

#include "dnssd/base/poll.h"

namespace dnssd {

// The frame of one call into the library; frames nest, the outermost one restores the caller's mask.
void signals_hold();
void signals_release();

// Takes the fatal signals that the program leaves to their default action while something is `publishing`; gives them
// back when nothing is, or when the program has a handler by now. They are read from a descriptor in `poll`.
void signals_review(Poll& poll, bool publishing);

// A taken signal that has arrived and that is to end the process; 0: none. One for which the program has installed a
// handler since is given back and raised again.
int signals_fatal_caught(Poll& poll);

// Raises the signal, with its default action, which ends the process.
[[noreturn]] void signals_die_of(int signal);

// In a forked child: gives the signals back without touching the parent's engine.
void signals_forget();

}  // namespace dnssd
