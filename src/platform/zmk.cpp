// SPDX-License-Identifier: MIT
// Lifecycle:
// 1. A source line gets its LineUse record at its first allocation; the record stays for the life of the process.
// 2. An allocation puts the block's address into the block table, with its size and its line's record.
// 3. A resized block moves to the line that resized it; its entry is replaced.
// 4. A free takes the entry out. An address without an entry is no block of ours, or one that was freed before.
//
// The block table stands beside the blocks and not in front of each: a wrong pointer is then recognised without reading
// memory that it points to, and a block keeps malloc's alignment and its bounds under a memory checker.
#include "platform/zmk.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// One allocating source line.
struct LineUse {
  const char* file;
  int line;
  ZmkUsage live;
  LineUse* next;  // in its bucket
};

// One live block. The address is kept with its bits turned over (0: free entry), so that a leak checker that scans
// memory for pointers does not take the table for an owner.
struct BlockEntry {
  std::uintptr_t hidden_address;
  std::size_t size;
  LineUse* line;
};

// The program has a few hundred allocating lines.
constexpr std::size_t kLineBuckets = 256;
// A power of two, as every later size of the table.
constexpr std::size_t kFirstBlockCapacity = 1024;

LineUse* gLineBuckets[kLineBuckets];
BlockEntry* gBlocks;         // open addressing, linear probing
std::size_t gBlockCapacity;  // entries, a power of two; 0 before the first block
std::size_t gBlockCount;     // entries in use, at most three quarters

std::uintptr_t hidden(const void* block) { return ~reinterpret_cast<std::uintptr_t>(block); }

// Fibonacci hashing: the multiplier is 2^64 divided by the golden ratio; the high bits of the product are well mixed.
std::size_t mixed(std::uintptr_t value) { return static_cast<std::size_t>((value * 0x9E3779B97F4A7C15ULL) >> 32); }

std::size_t home_of(std::uintptr_t hidden_address) { return mixed(hidden_address) & (gBlockCapacity - 1); }

LineUse* find_or_add_line(const char* file, int line) {
  LineUse** bucket =
      &gLineBuckets[mixed(reinterpret_cast<std::uintptr_t>(file) + static_cast<unsigned>(line)) % kLineBuckets];
  for (LineUse* use = *bucket; use != nullptr; use = use->next) {
    if (use->line == line && use->file == file) {
      return use;
    }
  }
  LineUse* use = static_cast<LineUse*>(std::malloc(sizeof(LineUse)));
  if (use != nullptr) {
    *use = LineUse{file, line, ZmkUsage{0, 0}, *bucket};
    *bucket = use;
  }
  return use;
}

// The entry of this block or, when there is none, the free entry where it would go. There must be a free entry.
BlockEntry* entry_for(std::uintptr_t hidden_address) {
  std::size_t position = home_of(hidden_address);
  while (gBlocks[position].hidden_address != 0 && gBlocks[position].hidden_address != hidden_address) {
    position = (position + 1) & (gBlockCapacity - 1);
  }
  return &gBlocks[position];
}

bool grow_block_table() {
  BlockEntry* const old_blocks = gBlocks;
  const std::size_t old_capacity = gBlockCapacity;
  const std::size_t capacity = old_capacity == 0 ? kFirstBlockCapacity : 2 * old_capacity;
  BlockEntry* const blocks = static_cast<BlockEntry*>(std::calloc(capacity, sizeof(BlockEntry)));
  if (blocks == nullptr) {
    return false;
  }
  gBlocks = blocks;
  gBlockCapacity = capacity;
  for (std::size_t i = 0; i < old_capacity; ++i) {
    if (old_blocks[i].hidden_address != 0) {
      *entry_for(old_blocks[i].hidden_address) = old_blocks[i];
    }
  }
  std::free(old_blocks);
  return true;
}

bool has_room_for_one_block() { return 4 * (gBlockCount + 1) <= 3 * gBlockCapacity || grow_block_table(); }

void add_block(const void* block, std::size_t size, LineUse* line) {
  *entry_for(hidden(block)) = BlockEntry{hidden(block), size, line};
  ++gBlockCount;
  ++line->live.blocks;
  line->live.bytes += size;
}

// Closes the gap that a removed entry leaves, so that no search ends early at it: each following entry moves back into
// the gap unless its home lies behind the gap (Knuth, TAOCP 3, algorithm 6.4 R).
void close_gap(std::size_t gap) {
  const std::size_t wrap = gBlockCapacity - 1;
  for (std::size_t next = (gap + 1) & wrap; gBlocks[next].hidden_address != 0; next = (next + 1) & wrap) {
    const std::size_t home = home_of(gBlocks[next].hidden_address);
    if (((next - home) & wrap) >= ((next - gap) & wrap)) {
      gBlocks[gap] = gBlocks[next];
      gap = next;
    }
  }
  gBlocks[gap].hidden_address = 0;
}

void remove_block(BlockEntry* entry) {
  --entry->line->live.blocks;
  entry->line->live.bytes -= entry->size;
  --gBlockCount;
  close_gap(static_cast<std::size_t>(entry - gBlocks));
}

BlockEntry* live_entry_or_abort(const void* block, const char* function, const char* file, int line) {
  BlockEntry* entry = gBlockCapacity != 0 ? entry_for(hidden(block)) : nullptr;
  if (entry == nullptr || entry->hidden_address == 0) {
    std::fprintf(stderr, "%s(): %p is no live block, called at %s:%d\n", function, block, file, line);
    std::abort();
  }
  return entry;
}

void add_usage(ZmkUsage& sum, const ZmkUsage& more) {
  sum.blocks += more.blocks;
  sum.bytes += more.bytes;
}

}  // namespace

void* zmk_malloc(std::size_t size, const char* file, int line) {
  LineUse* use = find_or_add_line(file, line);
  if (use == nullptr || !has_room_for_one_block()) {
    return nullptr;
  }
  const std::size_t taken = size != 0 ? size : 1;
  void* block = std::malloc(taken);
  if (block != nullptr) {
    add_block(block, taken, use);
  }
  return block;
}

void* zmk_realloc(void* ptr, std::size_t size, const char* file, int line) {
  if (ptr == nullptr) {
    return zmk_malloc(size, file, line);
  }
  BlockEntry* entry = live_entry_or_abort(ptr, "zmk_realloc", file, line);
  LineUse* use = find_or_add_line(file, line);
  const std::size_t taken = size != 0 ? size : 1;
  void* block = use != nullptr ? std::realloc(ptr, taken) : nullptr;
  if (block != nullptr) {
    remove_block(entry);
    add_block(block, taken, use);
  }
  return block;
}

char* zmk_strdup(const char* text, const char* file, int line) {
  const std::size_t size = std::strlen(text) + 1;
  char* copy = static_cast<char*>(zmk_malloc(size, file, line));
  if (copy != nullptr) {
    std::memcpy(copy, text, size);
  }
  return copy;
}

void zmk_free(void* ptr, const char* file, int line) {
  if (ptr == nullptr) {
    return;
  }
  remove_block(live_entry_or_abort(ptr, "zmk_free", file, line));
  std::free(ptr);
}

ZmkUsage zmk_usage() {
  ZmkUsage sum = {0, 0};
  for (const LineUse* use : gLineBuckets) {
    for (; use != nullptr; use = use->next) {
      add_usage(sum, use->live);
    }
  }
  return sum;
}

ZmkUsage zmk_usage_of(const char* file, int line) {
  // A header's line has one record for each source that includes it.
  ZmkUsage sum = {0, 0};
  for (const LineUse* use : gLineBuckets) {
    for (; use != nullptr; use = use->next) {
      if (use->line == line && std::strcmp(use->file, file) == 0) {
        add_usage(sum, use->live);
      }
    }
  }
  return sum;
}

void zmk_visit_lines(void (*visit)(const char* file, int line, ZmkUsage usage, void* context), void* context) {
  for (const LineUse* use : gLineBuckets) {
    for (; use != nullptr; use = use->next) {
      if (use->live.blocks != 0) {
        visit(use->file, use->line, use->live, context);
      }
    }
  }
}
