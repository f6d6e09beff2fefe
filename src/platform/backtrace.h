// SPDX-License-Identifier: MIT
// Where the program is, as text. Not every C library can tell; the build asks for it (MDNSPROXY_HAVE_BACKTRACE), and
// without it backtrace_none.cpp takes the place of backtrace.cpp.
#pragma once

#include <cstddef>

// Loads what backtrace_text needs, which takes memory, so that backtrace_text takes none.
void backtrace_prime();

// Writes one line for each frame of the caller and those above it into the `size` bytes at `text`, cut where these
// end and without a zero byte. Takes no memory and no lock, so that a signal handler may call it. Returns the number
// of bytes: 0 when there is no pipe to be had, or when the C library cannot tell.
std::size_t backtrace_text(char* text, std::size_t size);
