// SPDX-License-Identifier: MIT
// What the library does to signals: holds them back while it works, and takes those that would kill the process without its
// goodbyes. See the promises in dnssd.h.
#pragma once

namespace dnssd {

// The frame of one call into the library; frames nest, the outermost one restores the caller's mask.
void signals_hold();
void signals_release();

// Takes the fatal signals that the program leaves to their default action while something is `publishing`; gives them
// back when nothing is, or when the program has a handler by now.
void signals_review(bool publishing);

// If a taken signal has arrived: ends the engine with its goodbyes, gives the signal back and raises it; does not return
// then. Not to be called while descriptors are being served.
void signals_die_if_caught();

// In a forked child: gives the signals back without touching the parent's engine.
void signals_forget();

}  // namespace dnssd
