// SPDX-License-Identifier: MIT
// Deadlines: a binary heap of records that contain their deadline. The earliest is found in constant time; any record
// can be moved or removed in logarithmic time.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "mdns/wire/types.h"

namespace mdns {

// Part of a record that can be due. Set through its heap only.
struct Deadline {
  Time at = kNever;  // kNever: it is in no heap
  std::uint32_t place = 0;
};

// The records are owned elsewhere; one is taken out (set to kNever) before it is freed.
template <typename T, Deadline T::*deadline>
struct Heap {
  std::vector<T*> items;

  Time next() const { return items.empty() ? kNever : (items.front()->*deadline).at; }

  // The record that is due first; there must be one.
  T* first() const { return items.front(); }

  // The same, if it is due by then; else null.
  T* due(Time by) const { return next() <= by ? first() : nullptr; }

  // Moves the record to another time, puts it in, or with kNever takes it out.
  void set(T& item, Time at) {
    Deadline& own = item.*deadline;
    if (own.at == kNever) {
      if (at == kNever) {
        return;
      }
      own.place = static_cast<std::uint32_t>(items.size());
      items.push_back(&item);
    }
    own.at = at;
    const std::size_t place = own.place;
    if (at == kNever) {
      swap(place, items.size() - 1);
      items.pop_back();
    }
    if (place < items.size()) {
      sink(rise(place));
    }
  }

 private:
  Time at(std::size_t place) const { return (items[place]->*deadline).at; }

  void swap(std::size_t a, std::size_t b) {
    std::swap(items[a], items[b]);
    (items[a]->*deadline).place = static_cast<std::uint32_t>(a);
    (items[b]->*deadline).place = static_cast<std::uint32_t>(b);
  }

  std::size_t rise(std::size_t place) {
    while (place > 0 && at(place) < at((place - 1) / 2)) {
      swap(place, (place - 1) / 2);
      place = (place - 1) / 2;
    }
    return place;
  }

  void sink(std::size_t place) {
    for (std::size_t least = 2 * place + 1; least < items.size(); least = 2 * place + 1) {
      if (least + 1 < items.size() && at(least + 1) < at(least)) {
        ++least;
      }
      if (at(place) <= at(least)) {
        return;
      }
      swap(place, least);
      place = least;
    }
  }
};

}  // namespace mdns
