// SPDX-License-Identifier: MIT
// How the writer changes a record of the state file, and what its sources share.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>

#include "state/layout.h"

// The mapped file; null: there is none. Written by state_open alone.
extern StateImage* gStateImage;

// Makes the sequence number of a record odd for as long as it lives. The fences keep the writes of the record between
// those of the number: a sequence lock with one writer.
template <typename Record>
class RecordWriting {
 public:
  explicit RecordWriting(Record& record) : sequence_(record.sequence) {
    count();
    std::atomic_thread_fence(std::memory_order_release);
  }
  ~RecordWriting() {
    std::atomic_thread_fence(std::memory_order_release);
    count();
  }
  RecordWriting(const RecordWriting&) = delete;
  RecordWriting& operator=(const RecordWriting&) = delete;

 private:
  // Built into the compilers; not every libc++ has std::atomic_ref.
  void count() { __atomic_store_n(&sequence_, __atomic_load_n(&sequence_, __ATOMIC_RELAXED) + 1, __ATOMIC_RELAXED); }

  std::uint32_t& sequence_;
};

// Copies a text into its field, cut to fit; the rest of the field becomes zeros, so that nothing of a former text is
// left. A null text counts as empty.
template <std::size_t Size>
void set_field(char (&field)[Size], const char* text) {
  const std::size_t length = text != nullptr ? strnlen(text, Size - 1) : 0;
  if (length > 0) {
    std::memcpy(field, text, length);
  }
  std::memset(field + length, 0, Size - length);
}

// Nanoseconds of CLOCK_BOOTTIME, which goes on while the machine sleeps.
std::uint64_t state_now();

// Counts one more. Not to be called while the global record is being written.
void state_count(StateCounter counter);

// The slot of a rule; kStateRules: it has none.
std::uint32_t state_rule_slot(const void* rule);

// Forgets all rules and instances of a file that was open before; for tests, which open several.
void state_forget_rules();
void state_forget_instances();
