// SPDX-License-Identifier: MIT
#include "fakes/fake_if_nameindex.h"

#include <net/if.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

std::vector<fake_if_nameindex::Entry> gEntries;
int gError = 0;
unsigned gCalls = 0;
unsigned gLive = 0;

// Ends the list for the fake's own walk, which must not stop where the program under test does.
std::size_t gLastListLength = 0;

}  // namespace

extern "C" {

struct if_nameindex* if_nameindex(void) {
  ++gCalls;
  if (gError != 0) {
    errno = gError;
    return nullptr;
  }
  auto* list = static_cast<struct if_nameindex*>(std::calloc(gEntries.size() + 1, sizeof(struct if_nameindex)));
  for (std::size_t i = 0; i < gEntries.size(); ++i) {
    list[i].if_index = gEntries[i].index;
    list[i].if_name = gEntries[i].name ? strdup(gEntries[i].name->c_str()) : nullptr;
  }
  gLastListLength = gEntries.size();
  ++gLive;
  return list;
}

void if_freenameindex(struct if_nameindex* list) {
  for (std::size_t i = 0; i < gLastListLength; ++i) {
    std::free(list[i].if_name);
  }
  std::free(list);
  --gLive;
}

}  // extern "C"

namespace fake_if_nameindex {

void set(std::vector<Entry> entries) { gEntries = std::move(entries); }
void fail(int error) { gError = error; }
unsigned calls() { return gCalls; }
unsigned live_lists() { return gLive; }

void reset() {
  gEntries.clear();
  gError = 0;
  gCalls = 0;
  gLive = 0;
}

}  // namespace fake_if_nameindex
