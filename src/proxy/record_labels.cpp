// Lifecycle of a label: fresh (never used) -> in use (acquired) -> resting (retired) -> in use ...
//   1. acquire takes the longest-resting label once enough of them rest, else a fresh one, else the longest-resting, else the
//      one that is in use for the longest time;
//   2. retire puts it behind all others that rest.
// So a label rests as long as possible, and the memory that is ever touched follows the number of labels in use at a time.

#include "proxy/record_labels.h"

#include <array>
#include <cstddef>

#include "proxy/names.h"
#include "proxy/proxy.h"

namespace {

// How many labels rest before one is used again while fresh ones are left: more than a burst of goodbyes retires within the
// time that a reply takes.
constexpr std::size_t kRestingBeforeReuse = 256;
// Two labels (address records, subtype record) for each of the 2001 instances that may live at a time.
constexpr std::size_t kPoolSize = 2 * 2001 + kRestingBeforeReuse;

struct Label {
  char text[kNameSize];
  bool in_use;
  Label* older;  // neighbours in the list that holds it, null at the ends
  Label* newer;
};

struct LabelList {
  Label* oldest;
  Label* newest;
  std::size_t count;
};

std::array<Label, kPoolSize> pool;
std::size_t fresh_used;  // labels from here on are fresh
LabelList labels_in_use;
LabelList labels_resting;

void append(LabelList& list, Label* label) {
  label->older = list.newest;
  label->newer = nullptr;
  (list.newest != nullptr ? list.newest->newer : list.oldest) = label;
  list.newest = label;
  ++list.count;
}

void unlink(LabelList& list, Label* label) {
  (label->older != nullptr ? label->older->newer : list.oldest) = label->newer;
  (label->newer != nullptr ? label->newer->older : list.newest) = label->older;
  --list.count;
}

Label* take_oldest(LabelList& list) {
  Label* label = list.oldest;
  unlink(list, label);
  return label;
}

Label* take_label() {
  if (labels_resting.count > kRestingBeforeReuse) {
    return take_oldest(labels_resting);
  }
  if (fresh_used < kPoolSize) {
    return &pool[fresh_used++];
  }
  return take_oldest(labels_resting.count != 0 ? labels_resting : labels_in_use);
}

}  // namespace

char* record_label_acquire(const char* text) {
  Label* label = take_label();
  copy_text(label->text, text);
  label->in_use = true;
  append(labels_in_use, label);
  return label->text;
}

void record_label_retire(char* label) {
  if (label == nullptr) {
    return;
  }
  Label* retired = reinterpret_cast<Label*>(label);  // its first member
  if (retired->in_use) {
    retired->in_use = false;
    unlink(labels_in_use, retired);
    append(labels_resting, retired);
  }
}
