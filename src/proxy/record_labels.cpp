// SPDX-License-Identifier: MIT
// Lifecycle of a label: fresh (never used) -> in use (acquired) -> resting (retired) -> in use ...
//   1. acquire takes the longest-resting label once enough of them rest, else a fresh one, else the longest-resting,
//      else the one that is in use for the longest time;
//   2. retire puts it behind all others that rest.
// So a label rests as long as possible, and the memory that is ever touched follows the number of labels in use at a
// time.

#include "proxy/record_labels.h"

#include <utlist.h>

#include <array>
#include <cstddef>

#include "proxy/names.h"
#include "proxy/proxy.h"
#include "runtime/settings.h"

namespace {

// How many labels rest before one is used again while fresh ones are left: more than a burst of goodbyes retires within
// the time that a reply takes.
constexpr std::size_t kRestingBeforeReuse = 256;
// A resolve starts while the count is at the limit, so that one instance more may live.
constexpr std::size_t kInstances = kResponderLimit + 1;
// Two labels (address records, subtype record) for each instance that may live at a time.
constexpr std::size_t kPoolSize = 2 * kInstances + kRestingBeforeReuse;

struct Label {
  char text[kNameSize];
  bool in_use;
  Label* prev;  // neighbours in the list that holds it, as utlist.h keeps them
  Label* next;
};

// Each list from the label that has been in it for the longest time to the one that came last; null: empty.
Label* labels_in_use;
Label* labels_resting;

std::array<Label, kPoolSize> pool;
std::size_t fresh_used;  // labels from here on are fresh
std::size_t resting_count;

Label* take_oldest(Label*& list) {
  Label* label = list;
  DL_DELETE(list, label);
  return label;
}

Label* take_resting() {
  --resting_count;
  return take_oldest(labels_resting);
}

Label* take_label() {
  if (resting_count > kRestingBeforeReuse) {
    return take_resting();
  }
  if (fresh_used < kPoolSize) {
    return &pool[fresh_used++];
  }
  return resting_count != 0 ? take_resting() : take_oldest(labels_in_use);
}

}  // namespace

char* record_label_acquire(const char* text) {
  Label* label = take_label();
  copy_text(label->text, text);
  label->in_use = true;
  DL_APPEND(labels_in_use, label);
  return label->text;
}

void record_label_retire(char* label) {
  if (label == nullptr) {
    return;
  }
  Label* retired = reinterpret_cast<Label*>(label);  // its first member
  if (retired->in_use) {
    retired->in_use = false;
    DL_DELETE(labels_in_use, retired);
    DL_APPEND(labels_resting, retired);
    ++resting_count;
  }
}
