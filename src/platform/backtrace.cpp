// SPDX-License-Identifier: MIT
// Through a pipe, because the function of execinfo.h that gives the frames as texts takes memory, and the one that
// takes none writes them to a descriptor. A pipe holds 64 KiB, several times what these frames need.
#include "platform/backtrace.h"

#include <execinfo.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

constexpr int kDeepestBacktrace = 64;

std::size_t read_until_end(int file, char* text, std::size_t room) {
  std::size_t size = 0;
  ssize_t got = 0;
  while (size < room && (got = read(file, text + size, room - size)) > 0) {
    size += static_cast<std::size_t>(got);
  }
  return size;
}

}  // namespace

void backtrace_prime() {
  void* frame = nullptr;
  backtrace(&frame, 1);
}

std::size_t backtrace_text(char* text, std::size_t size) {
  void* frames[kDeepestBacktrace];
  const int count = backtrace(frames, kDeepestBacktrace);
  int ends[2];
  if (pipe(ends) != 0) {
    return 0;
  }
  backtrace_symbols_fd(frames, count, ends[1]);
  close(ends[1]);
  const std::size_t written = read_until_end(ends[0], text, size);
  close(ends[0]);
  return written;
}
